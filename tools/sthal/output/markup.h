#pragma once

#include <string>
#include <string_view>

// Text from outside made safe for the files of a run. Bytes that are no UTF-8 become U+FFFD.
namespace sthal {

// A JSON string with its quotes.
std::string JsonText(std::string_view text);

// For the inside of an HTML element or of an attribute in quotes. Control characters other than
// line feeds and tabs become U+FFFD.
std::string HtmlText(std::string_view text);

}  // namespace sthal
