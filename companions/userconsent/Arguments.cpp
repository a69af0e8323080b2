#include "companions/userconsent/Arguments.h"

#include <CLI/CLI.hpp>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "companions/userconsent/Question.h"

namespace {

constexpr int kWrongArguments = 2;
constexpr double kLongest = 86'400;  // seconds
constexpr unsigned kMaxRepeat = 100'000;

// Maps the short answers to the texts of the service's protocol. Any other text stays unchanged.
std::string TextOf(const std::string& answer) {
    if (answer == "yes") return kConsentYes;
    if (answer == "no") return kConsentNo;
    if (answer == "noresponse") return kConsentNoResponse;
    return answer;
}

// Decodes the escapes \n, \r, \0, \\ and hexadecimal bytes such as \x41.
std::string Unescape(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i] == '\\' && i + 1 < text.size() ? text[++i] : '\0';
        const bool isHex = c == 'x' && i + 2 < text.size() &&
                           std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                           std::isxdigit(static_cast<unsigned char>(text[i + 2]));
        if (c == '\0') {
            bytes += text[i];
        } else if (isHex) {
            bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            bytes += c == 'n' ? '\n' : c == 'r' ? '\r' : c == '0' ? '\0' : c;
        }
    }
    return bytes;
}

Unattended MakeUnattended(const std::vector<std::string>& answers, const std::vector<std::string>& raw) {
    Unattended unattended;
    for (const std::string& answer : answers) {
        if (answer == "silent") {
            unattended.staysSilent = true;
            break;
        }
        unattended.texts.push_back(TextOf(answer));
    }
    for (const std::string& text : raw)
        unattended.texts.push_back(Unescape(text));
    return unattended;
}

}  // namespace

Arguments ParseArguments(int argc, char** argv) {
    Arguments arguments;
    std::vector<std::string> answers, raw;
    double wait = 0, delay = 0;
    unsigned repeat = 1;
    CLI::App app("Asks the person at this PC for consent to remote control, and answers the service.",
                 "userconsent");
    const CLI::Range seconds(0.0, kLongest);
    auto* const waitOption =
        app.add_option("--wait", wait, "seconds to wait for a question; for ever without it")->check(seconds);
    auto* const answerOption =
        app.add_option("--answer", answers,
                       "answers without asking: yes, no, noresponse, silent (connects and "
                       "says nothing), or any other text; several are sent in turn");
    auto* const rawOption = app.add_option("--raw", raw, R"(sends these bytes, with \n, \r, \0, \\ and \x41)")
                                ->excludes(answerOption);
    app.add_option("--repeat", repeat, "sends each answer so often")->check(CLI::Range(1u, kMaxRepeat));
    app.add_option("--delay", delay, "seconds before each answer")->check(seconds);
    app.add_flag("--serve", arguments.serves, "goes on with the next question");
    app.add_flag("--dialog", arguments.dialog, "asks in a window, by zenity, when it is there");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        std::exit(0);
    } catch (const CLI::ParseError& problem) {
        std::fprintf(stderr, "userconsent: %s\n", problem.what());
        std::exit(kWrongArguments);
    }
    if (*waitOption) arguments.wait.emplace(wait);
    if (*answerOption || *rawOption) {
        arguments.unattended = MakeUnattended(answers, raw);
        arguments.unattended->repeat = repeat;
        arguments.unattended->delay = std::chrono::duration<double>(delay);
    }
    return arguments;
}
