#include "winhost/process/CommandLine.h"

namespace winhost {
namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

class Splitter {
  public:
    explicit Splitter(std::string_view rest) : m_rest(rest) {}

    std::vector<std::string> Split() {
        std::vector<std::string> arguments{TakeProgram()};
        while (SkipBlanks())
            arguments.push_back(TakeArgument());
        return arguments;
    }

  private:
    char Peek() const { return m_rest.empty() ? '\0' : m_rest.front(); }
    char Take() {
        const char c = m_rest.front();
        m_rest.remove_prefix(1);
        return c;
    }
    // False at the end.
    bool SkipBlanks() {
        while (IsBlank(Peek()))
            Take();
        return !m_rest.empty();
    }

    std::string TakeProgram() {
        std::string program;
        bool quoted = false;
        while (!m_rest.empty() && (quoted || !IsBlank(Peek()))) {
            const char c = Take();
            c == '"' ? void(quoted = !quoted) : program.push_back(c);
        }
        return program;
    }

    std::string TakeArgument() {
        std::string argument;
        bool quoted = false;
        while (!m_rest.empty() && (quoted || !IsBlank(Peek()))) {
            size_t backslashes = 0;
            for (; Peek() == '\\'; Take())
                ++backslashes;
            if (Peek() != '"') {
                argument.append(backslashes, '\\');
                if (!m_rest.empty() && (quoted || !IsBlank(Peek()))) argument.push_back(Take());
                continue;
            }
            argument.append(backslashes / 2, '\\');
            Take();
            if (backslashes % 2 == 1) {
                argument.push_back('"');
            } else if (quoted && Peek() == '"') {
                argument.push_back(Take());
            } else {
                quoted = !quoted;
            }
        }
        return argument;
    }

    std::string_view m_rest;
};

}  // namespace

std::vector<std::string> SplitArguments(std::string_view commandLine) {
    return Splitter(commandLine).Split();
}

}  // namespace winhost
