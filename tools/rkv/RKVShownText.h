// Document text as the tool's readable outputs show it: on one line, so that a title or a URL
// cannot fake lines of the outline. Control characters become escapes (\n, \r, \t, else \xNN;
// C1 controls, U+0080 to U+009F, \u00NN); everything else, invalid UTF-8 included, is kept.
// The JSON outputs need none of this: JSON escapes its strings itself.
#pragma once

#include <string>
#include <string_view>

namespace rkv::cli {

std::string shownText(std::string_view text);

}  // namespace rkv::cli
