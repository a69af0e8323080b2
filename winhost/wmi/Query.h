// What the PC's WMI knows, and how it is asked.
#pragma once

#include <wbemcli.h>

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace winhost {

// A property is a whole number of 16 bits or a text.
using WmiProperty = std::variant<uint16_t, std::wstring>;
// By its name, in small letters.
using WmiInstance = std::map<std::wstring, WmiProperty>;

std::wstring InSmallLetters(std::wstring text);

// The class of "SELECT * FROM class", in small letters; nothing for any other query.
std::optional<std::wstring> ClassOfQuery(const std::wstring& query);
// The PC's instances of the class; nothing for a class that it hasn't.
std::optional<std::vector<WmiInstance>> InstancesOf(const std::wstring& lowerClass);

// One reference, the caller's. With an error every Next tells it.
IEnumWbemClassObject* NewEnumerator(std::vector<WmiInstance> instances, HRESULT error);

}  // namespace winhost
