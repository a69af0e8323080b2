// The answer of `show` as a table for people: the host at a glance, then each record field by field, then the
// settings, then what the firmware's level turns on. And the tables of the mailbox for people.
#pragma once

#include <json/json.h>

#include <string>

namespace mpm::control {

std::string TableOf(const Json::Value& shown);
// `screen` as Firmware::Screen returns it.
std::string ScreenText(const Json::Value& screen);
// `tables` as TablesAsJson returns them.
std::string CatalogueText(const Json::Value& tables);

}  // namespace mpm::control
