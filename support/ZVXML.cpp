#include "ZVXML.h"

#include <sstream>

std::optional<ZVXMLDocument> ZVXMLDocument::parse(const std::string& text) {
    auto document = std::make_shared<pugi::xml_document>();
    auto result = document->load_buffer(text.data(), text.size());
    if (!result || !document->document_element()) return std::nullopt;
    ZVXMLDocument parsed;
    parsed._document = std::move(document);
    return parsed;
}

std::vector<pugi::xml_node> ZVXMLDocument::nodes(const std::string& xpath) const {
    return nodes(*_document, xpath);
}

std::optional<std::string> ZVXMLDocument::string(const std::string& xpath) const { return string(*_document, xpath); }

std::vector<pugi::xml_node> ZVXMLDocument::nodes(const pugi::xml_node& context, const std::string& xpath) {
    std::vector<pugi::xml_node> result;
    try {
        pugi::xpath_query query(xpath.c_str());
        if (query.return_type() != pugi::xpath_type_node_set) return result;
        for (const auto& item : query.evaluate_node_set(context)) {
            if (item.node()) result.push_back(item.node());
        }
    } catch (const pugi::xpath_exception&) {
    }
    return result;
}

std::string ZVXMLDocument::printed(const pugi::xml_node& node) {
    std::ostringstream text;
    node.print(text, "", pugi::format_raw);
    return text.str();
}

std::optional<std::string> ZVXMLDocument::string(const pugi::xml_node& context, const std::string& xpath) {
    try {
        pugi::xpath_query query(xpath.c_str());
        if (query.return_type() == pugi::xpath_type_node_set) {
            pugi::xpath_node_set found = query.evaluate_node_set(context);
            if (found.empty()) return std::nullopt;
        }
        return query.evaluate_string(context);
    } catch (const pugi::xpath_exception&) {
        return std::nullopt;
    }
}
