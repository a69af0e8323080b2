// Shows the question in a window of the desktop with the program zenity.
#pragma once

#include <optional>

#include "companions/userconsent/Question.h"

bool DialogIsThere();
// Returns no value when the time limit passes without an answer.
std::optional<bool> AskByDialog(const Question& question);
