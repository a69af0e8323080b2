// The question in a window of the desktop, by the program zenity.
#pragma once

#include <optional>

#include "companions/userconsent/Question.h"

bool DialogIsThere();
// Nothing when the time has passed without an answer.
std::optional<bool> AskByDialog(const Question& question);
