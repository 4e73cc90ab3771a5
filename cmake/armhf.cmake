# Cross-compiles for Debian's armhf: -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
