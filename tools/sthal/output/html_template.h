#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace sthal {

/**
 * An HTML template in the Mustache language, filled in with data. Where a name stands, text is
 * escaped for the inside of an element or of an attribute in quotes; bytes that are no UTF-8, and
 * control characters other than line feeds and tabs, become U+FFFD. For a section, null, false, an
 * empty text and an empty array count as nothing.
 */
std::string FillTemplate(const std::string& html, const nlohmann::json& data);

}  // namespace sthal
