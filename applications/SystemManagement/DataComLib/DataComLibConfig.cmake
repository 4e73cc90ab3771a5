# find_package(DataComLib) and target_link_libraries(... DataComLib::DataComLib). It finds what
# the headers bring.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(jsoncpp CONFIG)
include(${CMAKE_CURRENT_LIST_DIR}/DataComLibTargets.cmake)
