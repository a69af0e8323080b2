// Lines a second: the service's logger beside spdlog, both of which write and flush every line.
//
//   loglines FOLDER ROUNDS LINES      prints one line for each round: "service spdlog" in lines per second
//
// Each round writes LINES lines with either logger. The lines are of the same form, text and length: process,
// memory, level, message, tag, time, name of the time zone and thread.
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "bench/ServiceLog.h"

namespace {

using Destination = spdlog::memory_buf_t;

// The facts that spdlog has no flag for come from the same calls as in the service.
class Memory : public spdlog::custom_flag_formatter {
  public:
    void format(const spdlog::details::log_msg&, const std::tm&, Destination& destination) override {
        fmt::format_to(std::back_inserter(destination), "{}", PrivateMegabytes());
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<Memory>(); }
};

class TimeZone : public spdlog::custom_flag_formatter {
  public:
    void format(const spdlog::details::log_msg&, const std::tm&, Destination& destination) override {
        char name[128];
        destination.append(name, name + TimeZoneName(name));
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<TimeZone>(); }
};

class HexThread : public spdlog::custom_flag_formatter {
  public:
    void format(const spdlog::details::log_msg& message, const std::tm&, Destination& destination) override {
        fmt::format_to(std::back_inserter(destination), "{:x}", message.thread_id);
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<HexThread>(); }
};

std::shared_ptr<spdlog::logger> Peer(const std::string& folder) {
    auto peer = spdlog::basic_logger_mt("INFO", folder + "/spdlog.log", true);
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    formatter->add_flag<Memory>('*').add_flag<TimeZone>('?').add_flag<HexThread>('&');
    formatter->set_pattern(
        "[%P]-[ %* M ] %n:  %v $$<ZELService> <%a  %b %d %H:%M:%S.%e %Y %?> <thread = %t (0x%&)>");
    peer->set_formatter(std::move(formatter));
    peer->flush_on(spdlog::level::info);
    return peer;
}

double LinesPerSecond(int lines, const std::function<void(int)>& line) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < lines; ++i)
        line(i);
    return lines / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "loglines: FOLDER ROUNDS LINES\n");
        return 2;
    }
    const std::string folder = argv[1];
    const int rounds = atoi(argv[2]), lines = atoi(argv[3]);
    const auto peer = Peer(folder);
    if (!OpenServiceLog(folder)) {
        fprintf(stderr, "loglines: cannot open the service's log in %s\n", folder.c_str());
        return 1;
    }
    const std::function<void(int)> service = WriteServiceLogLine;
    const std::function<void(int)> spdlog = [&](int i) {
        peer->info("{}: received command from driver {}, bytes read {}", "ProcessRead", 8, i);
    };
    for (int round = 0; round < rounds; ++round) {
        // Neither is always the first of a round.
        double figures[2];
        for (int turn = 0; turn < 2; ++turn) {
            const int which = (round + turn) % 2;
            figures[which] = LinesPerSecond(lines, which == 0 ? service : spdlog);
        }
        printf("%.0f %.0f\n", figures[0], figures[1]);
    }
    return 0;
}
