// Lines a second: the service's logger beside spdlog with a flush at every line, in turns in one run. Each
// line of both carries process, level, message, tag, time and thread; the service's also its memory and the
// time zone's name.
//
//   loglines FOLDER LINES      prints "service spdlog" in lines per second, the median of the rounds
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/ServiceLog.h"

namespace {

double LinesPerSecond(int lines, const std::function<void(int)>& line) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < lines; ++i)
        line(i);
    return lines / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "loglines: FOLDER LINES\n");
        return 2;
    }
    const std::string folder = argv[1];
    const int lines = atoi(argv[2]);
    auto peer = spdlog::basic_logger_mt("peer", folder + "/spdlog.log", true);
    peer->set_pattern("[%P] %l:  %v $$<ZELService> <%a  %b %d %H:%M:%S.%e %Y> <thread = %t>");
    peer->flush_on(spdlog::level::info);
    if (!OpenServiceLog(folder)) {
        fprintf(stderr, "loglines: cannot open the service's log in %s\n", folder.c_str());
        return 1;
    }
    std::vector<double> service, spdlogLines;
    for (int round = 0; round < 5; ++round) {
        spdlogLines.push_back(LinesPerSecond(lines, [&](int i) {
            peer->info("{}: received command from driver {}, bytes read {}", "ProcessRead", 8, i);
        }));
        service.push_back(LinesPerSecond(lines, WriteServiceLogLine));
    }
    printf("%.0f %.0f\n", Median(service), Median(spdlogLines));
    return 0;
}
