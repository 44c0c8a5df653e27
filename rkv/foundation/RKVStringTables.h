// RKVStringTables: the localised texts that hosts register per bundle and table, read by
// RKVUtils::localizedStringForKey. There are no resource bundles on the device, so a host SDK
// registers its tables (already in the user's language) at start-up. Thread-safe.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVStringTables {
 public:
  // The table searched when a look-up names none (absent or empty table name).
  static constexpr std::string_view kDefaultTable = "Localizable";

  // Adds the entries to `table` of `bundle` (a bundle identifier such as "com.vireohub.SDK"),
  // replacing the texts of keys already there. An empty table name means kDefaultTable.
  static void registerTable(std::string_view bundle, std::string_view table,
                            const std::map<std::string, std::string>& entries);
  // Forgets every table of `bundle`.
  static void removeBundle(std::string_view bundle);
  // The text registered for `key`, or absent when the bundle, table or key is unknown.
  static std::optional<std::string> textForKey(std::string_view key, std::string_view table,
                                               std::string_view bundle);
};

}  // namespace rkv
