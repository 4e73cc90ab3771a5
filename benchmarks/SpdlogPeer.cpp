#include "Peers.h"

#ifdef BENCH_SPDLOG

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

PeerWork spdlogLine(const std::string& path, const std::string& text)
{
    const auto logger = spdlog::basic_logger_mt("bench", path);
    logger->set_pattern("%l %d/%m/%y %H:%M:%S.%e %n(%P)%s:%#:%v");
    logger->flush_on(spdlog::level::trace);
    return {.system = "spdlog", .work = [logger, text, number = 0]() mutable {
                SPDLOG_LOGGER_INFO(logger, "{}{}", text, ++number);
            }};
}

#else

PeerWork spdlogLine(const std::string& /*path*/, const std::string& /*text*/)
{
    return {.system = "spdlog", .missing = kNotInstalled};
}

#endif
