#include "tools/sthal/output/html_template.h"

#include <android-base/logging.h>
#include <kainjow/mustache.hpp>
#include <nlohmann/json.hpp>

namespace sthal {

namespace {

using nlohmann::json;
namespace mustache = ::kainjow::mustache;

mustache::data DataOf(const json& value) {
    if (value.is_object()) {
        mustache::object object;
        for (const auto& [name, member] : value.items()) object.emplace(name, DataOf(member));
        return object;
    }
    if (value.is_array()) {
        mustache::list list;
        for (const json& element : value) list.push_back(DataOf(element));
        return list;
    }
    if (value.is_boolean()) return value.get<bool>();
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    if (value.is_null() || text.empty()) return false;
    return text;
}

std::string Escaped(const std::string& text) {
    std::string printable;
    for (const char c : text) {
        const bool is_control = c == 0x7F || (c >= 0 && c < 0x20 && c != '\n' && c != '\t');
        printable += is_control ? "\xEF\xBF\xBD" : std::string(1, c);
    }
    return mustache::html_escape(printable);
}

}  // namespace

std::string FillTemplate(const std::string& html, const json& data) {
    mustache::mustache page(html);
    CHECK(page.is_valid()) << page.error_message();
    page.set_custom_escape(Escaped);
    // Written out and read again, it is UTF-8.
    return page.render(
            DataOf(json::parse(data.dump(-1, ' ', false, json::error_handler_t::replace))));
}

}  // namespace sthal
