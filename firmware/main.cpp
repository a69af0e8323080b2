// mpmsim: the simulated manageability processor as a program, and the commands that speak to one that runs.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "firmware/Catalogue.h"
#include "firmware/Hex.h"
#include "firmware/Report.h"
#include "firmware/control/Run.h"
#include "firmware/control/Table.h"
#include "firmware/control/Verbs.h"
#include "testbed/ControlSocket.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBadArguments = 2;

struct Options {
    mpm::control::RunOptions run;
    std::string control;
    // send
    std::string command, hex, text, file;
    size_t size = 0;
    unsigned trailer = 0;
    bool raw = false;
    // enrol
    std::string host, authority, certificateTemplate, subject = "mpmsim";
    // set, fault, show, requests
    std::vector<std::string> words;
    bool json = false;
    // screen
    std::string picture;
    bool reset = false;
};

std::vector<uint8_t> PayloadOf(const Options& options) {
    if (!options.hex.empty()) return mpm::FromHex(options.hex);
    if (!options.text.empty()) return {options.text.begin(), options.text.end()};
    if (options.file.empty()) return std::vector<uint8_t>(options.size);
    std::ifstream file(options.file, std::ios::binary);
    if (!file) throw std::invalid_argument("cannot read " + options.file);
    return {std::istreambuf_iterator<char>(file), {}};
}

Json::Value SendRequest(const Options& options) {
    Json::Value request;
    request["verb"] = "send";
    request["raw"] = options.raw;
    request["payload"] = mpm::ToHex(PayloadOf(options));
    request["trailer"] = options.trailer;
    if (options.raw != options.command.empty())
        throw std::invalid_argument(options.raw ? "a raw message has no command"
                                                : "send needs a command, or --raw");
    if (options.raw) return request;
    const auto number = mpm::ParseCommand(options.command);
    if (!number)
        throw std::invalid_argument("there is no firmware command \"" + options.command +
                                    "\"; mpmsim catalogue lists them");
    request["command"] = *number;
    return request;
}

Json::Value EnrolRequest(const Options& options) {
    Json::Value request;
    request["verb"] = "enrol";
    request["host"] = options.host;
    request["authority"] = options.authority;
    request["template"] = options.certificateTemplate;
    request["subject"] = options.subject;
    return request;
}

Json::Value SetRequest(const Options& options) {
    Json::Value request;
    request["verb"] = "set";
    for (const std::string& word : options.words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos)
            throw std::invalid_argument("set needs KEY=VALUE, not \"" + word + "\"");
        request["values"][word.substr(0, equals)] = word.substr(equals + 1);
    }
    return request;
}

Json::Value WordsRequest(const char* verb, const Options& options) {
    Json::Value request;
    request["verb"] = verb;
    for (const std::string& word : options.words)
        request["words"].append(word);
    return request;
}

Json::Value ScreenRequest(const Options& options) {
    Json::Value request;
    request["verb"] = "screen";
    request["reset"] = options.reset;
    // The simulator may run in another folder.
    if (!options.picture.empty()) request["picture"] = std::filesystem::absolute(options.picture).string();
    return request;
}

Json::Value Ask(const Options& options, const Json::Value& request) {
    Json::Value answer = testbed::AskControlSocket(options.control, request);
    if (answer.isMember("error")) throw std::invalid_argument(answer["error"].asString());
    return answer;
}

void PrintRequests(const Json::Value& requests, bool json) {
    for (const Json::Value& request : requests)
        std::cout << (json ? mpm::Compact(request) : mpm::LineOf(request)) << '\n';
}

void AddRun(CLI::App& app, Options& options) {
    CLI::App* run = app.add_subcommand("run", "Run the firmware until SIGTERM or SIGINT");
    run->add_option("--listen", options.run.listen, "unix:/path or tcp:127.0.0.1:port")->required();
    run->add_option("--settings", options.run.settingsFile, "JSON file of settings");
    run->add_option("--set", options.run.set, "KEY=VALUE, over the file");
    run->add_option("--record", options.run.recordFile, "File for the record as JSON lines; - for stdout");
    run->add_option("--control", options.run.controlSocket, "Path of the control socket");
    run->add_option("--dash", options.run.dash,
                    "none, identify, echo or bridge:host:port (default identify)");
    run->add_option("--kvm", options.run.kvm, "none, echo, screen or bridge:host:port (default none)");
    run->add_option("--ready-file", options.run.readyFile, "Written with the address once it listens");
    run->add_option("--certificate", options.run.certificateFile,
                    "File for the DASH endpoint's certificate (PEM)");
    run->add_flag("--quiet", options.run.quiet, "Print nothing");
    mpm::web::WebOptions& web = options.run.web;
    run->add_option("--web", web.address,
                    "Serve a page on 127.0.0.1:PORT, [::1]:PORT or PORT; 0 is any free port");
    run->add_option("--web-ready-file", web.readyFile, "Written with the page's URL once it is served");
    run->add_option("--web-pc", web.pc, "Control socket of the simulated PC, for the page");
    run->add_option("--web-log", web.log, "The service's log, for the page");
    run->add_option("--web-kvm", web.kvm, "Where the service serves viewers, for the page's VNC client");
    run->add_option("--web-dash", web.dash, "Where the service serves consoles, shown in the page");
}

void AddClients(CLI::App& app, Options& options) {
    const auto add = [&](const char* name, const char* help) {
        CLI::App* verb = app.add_subcommand(name, help);
        verb->add_option("--control", options.control, "Path of the control socket")->required();
        return verb;
    };
    CLI::App* send = add("send", "Send a firmware command to the host");
    send->add_option("command", options.command, "Name (with or without MPM_ZEL_CMD_, any case) or number");
    CLI::Option_group* payload = send->add_option_group("payload");
    payload->add_option("--hex", options.hex, "Payload in hexadecimal");
    payload->add_option("--text", options.text, "Payload as text");
    payload->add_option("--file", options.file, "Payload from a file");
    payload->add_option("--size", options.size, "Payload of so many zero bytes")
        ->check(CLI::Range(0, 1 << 20));
    payload->require_option(0, 1);
    send->add_option("--trailer", options.trailer, "The last byte of the message")->check(CLI::Range(0, 255));
    send->add_flag("--raw", options.raw, "The payload is the whole message, without command and trailer");

    CLI::App* enrol = add("enrol", "Have the host obtain a certificate for a new key");
    enrol->add_option("--host", options.host, "Host of the certificate authority")->required();
    enrol->add_option("--ca", options.authority, "Name of the certificate authority")->required();
    enrol->add_option("--template", options.certificateTemplate, "Certificate template")->required();
    enrol->add_option("--subject", options.subject, "Common name of the certificate (default mpmsim)");

    add("set", "Change settings: KEY=VALUE ...")->add_option("values", options.words)->required();
    add("fault", "refuse, delay, hold, release, answer-size, vanish, come-back or clear")
        ->add_option("words", options.words)
        ->required();
    add("show", "What the firmware knows of the host")->add_flag("--json", options.json);
    CLI::App* screen = add("screen", "What the display client has pulled and measured");
    screen->add_flag("--json", options.json);
    screen->add_option("--picture", options.picture, "Saves the last picture as a PPM file");
    screen->add_flag("--reset", options.reset, "Begins the measurement anew, once it has been read");
    add("requests", "What the host has asked")->add_flag("--json", options.json);
    app.add_subcommand("catalogue", "Every command, request and firmware level; needs no running simulator")
        ->add_flag("--json", options.json);
}

void PrintCatalogue(bool json) {
    const Json::Value tables = mpm::TablesAsJson();
    std::cout << (json ? mpm::Compact(tables) + "\n" : mpm::control::CatalogueText(tables));
}

int Execute(const CLI::App& app, const Options& options) {
    if (app.got_subcommand("run")) return mpm::control::Run(options.run);
    if (app.got_subcommand("send"))
        std::cout << Ask(options, SendRequest(options))["text"].asString() << '\n';
    if (app.got_subcommand("enrol"))
        std::cout << Ask(options, EnrolRequest(options))["text"].asString() << '\n';
    if (app.got_subcommand("set")) std::cout << Ask(options, SetRequest(options))["text"].asString() << '\n';
    if (app.got_subcommand("fault"))
        std::cout << Ask(options, WordsRequest("fault", options))["text"].asString() << '\n';
    if (app.got_subcommand("show")) {
        const Json::Value shown = Ask(options, WordsRequest("show", options));
        std::cout << (options.json ? mpm::Compact(shown) + "\n" : mpm::control::TableOf(shown));
    }
    if (app.got_subcommand("screen")) {
        const Json::Value screen = Ask(options, ScreenRequest(options))["screen"];
        std::cout << (options.json ? mpm::Compact(screen) + "\n" : mpm::control::ScreenText(screen));
    }
    if (app.got_subcommand("catalogue")) PrintCatalogue(options.json);
    if (app.got_subcommand("requests"))
        PrintRequests(Ask(options, WordsRequest("requests", options))["requests"], options.json);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("mpmsim, a simulated manageability processor");
    app.require_subcommand(1);
    AddRun(app, options);
    AddClients(app, options);
    try {
        app.parse(argc, argv);
        return Execute(app, options);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "mpmsim: " << error.what() << '\n';
        return kBadArguments;
    } catch (const std::invalid_argument& error) {
        std::cerr << "mpmsim: " << error.what() << '\n';
        return kBadArguments;
    } catch (const std::exception& error) {
        std::cerr << "mpmsim: " << error.what() << '\n';
        return kFailed;
    }
}
