// Of the log in the working folder.
#pragma once

constexpr const char* kLogFileName = "zel.log";
