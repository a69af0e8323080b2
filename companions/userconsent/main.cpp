// The consent client for a terminal. It waits for the service's question, asks the user and sends the answer.
// docs/companions.md describes how to use it.
#include <windows.h>

#include <cstdio>
#include <string>

#include "companions/userconsent/Arguments.h"
#include "companions/userconsent/Dialog.h"
#include "companions/userconsent/Question.h"
#include "companions/userconsent/ServicePipe.h"
#include "companions/userconsent/Terminal.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kNothingAsked = 3;
constexpr DWORD kPauseAfterFailure = 500;  // milliseconds

int Fail(const char* what, DWORD error) {
    std::fprintf(stderr, "userconsent: %s (error %lu)\n", what, static_cast<unsigned long>(error));
    return kFailed;
}

int Send(ServicePipe& pipe, const std::string& answer) {
    if (const DWORD error = pipe.Write(answer)) return Fail("the service takes no answer any more", error);
    std::printf("sent %s\n", answer.c_str());
    std::fflush(stdout);
    return kDone;
}

int SendUnattended(ServicePipe& pipe, const Unattended& unattended) {
    const auto delay = std::chrono::duration_cast<std::chrono::milliseconds>(unattended.delay);
    for (const std::string& text : unattended.texts)
        for (unsigned i = 0; i < unattended.repeat; ++i) {
            Sleep(static_cast<DWORD>(delay.count()));
            if (const int code = Send(pipe, text)) return code;
        }
    if (unattended.staysSilent) pipe.AwaitEnd();
    return kDone;
}

// Asks the user at the PC. No answer within the time limit is also an answer.
std::string Ask(const Question& question, bool dialog, Terminal& terminal) {
    const auto agrees = dialog && DialogIsThere() ? AskByDialog(question) : terminal.Ask(question);
    if (!agrees) return kConsentNoResponse;
    return *agrees ? kConsentYes : kConsentNo;
}

int AnswerOne(const Arguments& arguments, Terminal& terminal) {
    ServicePipe pipe;
    std::string message;
    DWORD error = ERROR_SUCCESS;
    do {
        const DWORD connected = pipe.Connect(arguments.wait);
        if (connected == WAIT_TIMEOUT) {
            std::fputs("userconsent: the service has asked nothing\n", stderr);
            return kNothingAsked;
        }
        if (connected != ERROR_SUCCESS) return Fail("the service's pipe can't be opened", connected);
        error = pipe.Read(message);
        // The service disconnects the pipe of a question that it abandons for a later one.
    } while (HasHungUp(error));
    if (error != ERROR_SUCCESS) return Fail("the service's question can't be read", error);
    const auto question = ParseQuestion(message);
    if (!question) return Fail("what the service sends is no question", ERROR_INVALID_DATA);
    std::printf("asked: type %u, time limit %u seconds\n", static_cast<unsigned>(question->type),
                static_cast<unsigned>(question->timeout));
    std::fflush(stdout);
    if (arguments.unattended) return SendUnattended(pipe, *arguments.unattended);
    return Send(pipe, Ask(*question, arguments.dialog, terminal));
}

}  // namespace

int main(int argc, char** argv) {
    const Arguments arguments = ParseArguments(argc, argv);
    Terminal terminal;
    int code = AnswerOne(arguments, terminal);
    while (arguments.serves && code != kNothingAsked) {
        if (code != kDone) Sleep(kPauseAfterFailure);
        code = AnswerOne(arguments, terminal);
    }
    std::fflush(stdout);
    // A thread may still be blocked in a read of standard input, so the process exits without joining it.
    ExitProcess(static_cast<UINT>(code));
}
