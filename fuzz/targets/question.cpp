// The consent question as the client program takes it from the pipe.
#include <chrono>
#include <string>

#include "companions/userconsent/Question.h"
#include "fuzz/Input.h"

FUZZ_TARGET(question) {
    const auto question = ParseQuestion(fuzz::TextOf(input));
    if (!question) return;
    const std::string again =
        "yes\n" + std::to_string(question->type) + "\n" + std::to_string(question->timeout);
    const auto second = ParseQuestion(again + '\0');
    fuzz::Require(second && second->type == question->type && second->timeout == question->timeout,
                  "a question that was taken can be put again");
    fuzz::Require(question->Limit() <= std::chrono::seconds(90), "a question lasts 90 seconds at most");
}
