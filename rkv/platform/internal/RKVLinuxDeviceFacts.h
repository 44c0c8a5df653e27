// Readers of the Linux sources of the device facts: /etc/os-release, /proc/net/route, the
// locale environment, network interfaces. Pure functions over text where possible.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace rkv::internal {

// The value of VERSION_ID in an os-release text (quotes and backslash escapes removed); absent
// when missing or empty.
std::optional<std::string> osReleaseVersionID(std::string_view osRelease);

// The interface of the default IPv4 route (destination and mask 0, route up) in a
// /proc/net/route text, the lowest metric winning; absent when there is none.
std::optional<std::string> defaultRouteInterface(std::string_view routeTable);

// The first IPv4 address of the named interface, as dotted text; absent when it has none.
std::optional<std::string> IPv4AddressOfInterface(std::string_view interfaceName);

// A POSIX locale name ("fr_FR.UTF-8@euro") as a language tag ("fr-FR"); absent for "C",
// "POSIX", empty or malformed names.
std::optional<std::string> languageTagFromLocaleName(std::string_view localeName);

// The user's first preferred language from the environment (LANGUAGE's first entry, else
// LC_ALL, LC_MESSAGES, LANG), looked up through `getEnvironment`; absent when none names a
// language.
std::optional<std::string> preferredLanguage(
    const std::function<const char*(const char*)>& getEnvironment);

// Compares two texts the way the platform's numeric string search does: runs of ASCII digits
// compare by their numeric value, every other character by its code. Returns <0, 0 or >0.
int compareNumerically(std::string_view a, std::string_view b);

// The whole content of a small system file; absent when it cannot be read.
std::optional<std::string> readSystemFile(const char* path);

}  // namespace rkv::internal
