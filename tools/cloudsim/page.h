#pragma once

#include <string_view>

/// The page at "/_sim/", made from the files in page/ at build time.
std::string_view pageHtml();
