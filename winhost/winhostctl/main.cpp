// winhostctl: plays Windows to a process that runs on a simulated PC, over its control socket.
#include <CLI/CLI.hpp>
#include <json/json.h>

#include <cstdint>
#include <iostream>
#include <string>

#include "winhost/winhostctl/Exchange.h"
#include "winhost/winhostctl/Print.h"

namespace {

// A number stays a number; all else is a name.
Json::Value NumberOrName(const std::string& text) {
    const bool number =
        !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
    return number ? Json::Value(Json::UInt64{std::stoull(text)}) : Json::Value(text);
}

// The command line, whose options write into the request that is sent.
class CommandLine {
  public:
    CommandLine() {
        m_app.add_option("socket", m_socket, "the PC's control socket")->required();
        m_app.add_flag("--json", m_json, "print the answer as one line of JSON");
        m_app.require_subcommand(1);
        m_app.fallthrough();
        AddPlain("status", "the service's last report to its control manager");
        AddPlain("reports", "all its reports");
        AddPlain("event-log", "the entries of the event log");
        AddPlain("description", "the PC's description as it stands");
        AddPlain("mailbox", "what is open and pending on the mailbox device");
        AddPlain("power-actions", "the shutdowns, reboots, hibernations and sleeps that were asked for");
        AddPlain("lock", "locks the desktop at the console");
        AddPlain("unlock", "unlocks it");
        AddPlain("processes", "the PC's processes");
        AddPlain("launches", "the programs that were started in a session");
        AddPlain("handles", "how many handles and sockets are open");
        AddPlain("help", "what the control socket understands");
        AddControl();
        AddClock();
        AddChange();
        AddGate();
        AddWlan();
        AddSession();
    }

    CLI::App& App() { return m_app; }
    const std::string& Socket() const { return m_socket; }
    bool PrintsJson() const { return m_json; }
    const Json::Value& Request() const { return m_request; }

  private:
    CLI::App* Add(CLI::App& parent, const char* name, const char* help) {
        CLI::App* command = parent.add_subcommand(name, help);
        command->fallthrough();
        return command;
    }

    void AddPlain(const char* name, const char* help) {
        Add(m_app, name, help)->callback([this, name] { m_request["command"] = name; });
    }

    // A subcommand's subcommand is the request's "action".
    CLI::App* AddAction(CLI::App& command, const char* name, const char* help) {
        CLI::App* action = Add(command, name, help);
        action->callback([this, name, command = command.get_name()] {
            m_request["command"] = command;
            m_request["action"] = name;
        });
        return action;
    }

    CLI::Option* AddNumber(CLI::App& command, const char* name, const char* help) {
        return command.add_option_function<int64_t>(
            name, [this, name](int64_t value) { m_request[name] = Json::Int64{value}; }, help);
    }

    void AddControl() {
        CLI::App* control =
            Add(m_app, "control", "delivers a service control; returns when its handler has returned");
        control
            ->add_option_function<std::string>(
                "code", [this](const std::string& text) { m_request["code"] = NumberOrName(text); },
                "a number, or a name: stop, preshutdown, interrogate, suspend, resume-automatic, ...")
            ->required();
        AddNumber(*control, "event", "event type of a power event");
        control->add_flag_callback(
            "--force", [this] { m_request["force"] = true; }, "also one that the service does not accept");
        control->callback([this] { m_request["command"] = "control"; });
    }

    void AddClock() {
        CLI::App* clock = Add(m_app, "clock", "moves the PC's clock");
        clock->require_subcommand(1);
        AddNumber(*AddAction(*clock, "advance", "moves it forward"), "milliseconds", "by so many")
            ->required();
        AddNumber(
            *AddAction(*clock, "wall-offset", "moves the wall clock alone, back with a negative number"),
            "milliseconds", "by so many, from the real time")
            ->required();
        AddAction(*clock, "manual", "lets it stand still but for advance");
        AddAction(*clock, "running", "lets it follow the machine");
        AddAction(*clock, "read", "its readings");
    }

    void AddChange() {
        CLI::App* change = Add(m_app, "change", "changes the PC's description");
        change
            ->add_option_function<std::string>(
                "patch",
                [this](const std::string& text) {
                    if (!Json::Reader().parse(text, m_request["patch"]))
                        throw CLI::ValidationError("patch", "not JSON");
                },
                "a JSON merge patch: {\"adapters\": [], \"connectedFlags\": 0}")
            ->required();
        change->callback([this] { m_request["command"] = "change"; });
    }

    void AddGate() {
        CLI::App* gate = Add(m_app, "gate", "counts, delays or fails the service's calls");
        gate->require_subcommand(1);
        CLI::App* fail = AddAction(*gate, "fail", "makes the nth call from now fail");
        AddCall(*fail)->required();
        AddNumber(*fail, "n", "1 is the next")->required();
        AddNumber(*fail, "error", "Windows' error number")->required();
        fail->add_flag_callback(
            "--for-ever", [this] { m_request["forEver"] = true; }, "and all after it");
        CLI::App* delay = AddAction(*gate, "delay", "holds each such call");
        AddCall(*delay)->required();
        AddNumber(*delay, "milliseconds", "for so long, in real time")->required();
        AddCall(*AddAction(*gate, "count", "counts the calls since the last reset"));
        AddAction(*gate, "reset", "lets all calls pass, and counts from 0");
    }

    void AddWlan() {
        CLI::App* wlan = Add(m_app, "wlan", "plays the WLAN service");
        wlan->require_subcommand(1);
        CLI::App* notify =
            AddAction(*wlan, "notify", "tells the listeners; returns when their callbacks have returned");
        AddNumber(*notify, "code", "10 is connected, 21 disconnected")->required();
        AddNumber(*notify, "source", "8, the auto configuration, when left out");
        CLI::App* state = AddAction(*wlan, "state", "sets an interface's state");
        state
            ->add_option_function<std::string>(
                "state", [this](const std::string& text) { m_request["state"] = NumberOrName(text); },
                "0 to 7, or a name: connected, disconnected, associating, ...")
            ->required();
        AddNumber(*state, "interface", "its place in the PC's list, from 0");
        AddAction(*wlan, "read", "the interfaces, and how many listen");
    }

    void AddSession() {
        CLI::App* session = Add(m_app, "session", "brings another session to the console");
        session
            ->add_option_function<std::string>(
                "id", [this](const std::string& text) { m_request["id"] = NumberOrName(text); },
                "its number, or none")
            ->required();
        session->callback([this] { m_request["command"] = "session"; });
    }

    CLI::Option* AddCall(CLI::App& action) {
        return action.add_option_function<std::string>(
            "call", [this](const std::string& name) { m_request["call"] = name; },
            "the call's name, or an empty text for any");
    }

    CLI::App m_app{"Plays Windows to a process on a simulated PC."};
    std::string m_socket;
    bool m_json = false;
    Json::Value m_request{Json::objectValue};
};

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine;
    CLI11_PARSE(commandLine.App(), argc, argv);
    try {
        const Json::Value answer = winhostctl::Exchange(commandLine.Socket(), commandLine.Request());
        if (!answer["ok"].asBool()) {
            std::cerr << "winhostctl: " << answer["error"].asString() << "\n";
            return 1;
        }
        winhostctl::Print(std::cout, answer["result"], commandLine.PrintsJson());
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "winhostctl: " << error.what() << "\n";
        return 1;
    }
}
