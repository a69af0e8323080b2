// A test program that is led from outside: takes one command a line, answers each with one line of JSON.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

// One JSON object in the making; values are numbers, plain texts, or truth.
class Answer {
  public:
    Answer& Number(const char* key, long long value) { return Add(key, std::to_string(value)); }
    Answer& Truth(const char* key, bool value) { return Add(key, value ? "true" : "false"); }
    Answer& Text(const char* key, const std::string& value) {
        std::string quoted = "\"";
        for (const char letter : value) {
            if (letter == '"' || letter == '\\') quoted += '\\';
            quoted += letter;
        }
        return Add(key, quoted + "\"");
    }
    std::string Line() const { return "{" + m_members + "}"; }

  private:
    Answer& Add(const char* key, const std::string& value) {
        m_members += std::string(m_members.empty() ? "" : ", ") + "\"" + key + "\": " + value;
        return *this;
    }

    std::string m_members;
};

// Each command gets the words behind its name. Ends with the input, or with "quit".
inline int ServeLines(const std::map<std::string, std::function<Answer(const Words&)>>& commands) {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream stream(line);
        std::string name;
        Words words;
        stream >> name;
        for (std::string word; stream >> word;)
            words.push_back(word);
        if (name == "quit") return 0;
        Answer answer;
        try {
            answer = commands.at(name)(words);
        } catch (const std::exception& problem) {
            answer = Answer().Text("problem", name + ": " + problem.what());
        }
        std::cout << answer.Line() << std::endl;
    }
    return 0;
}
