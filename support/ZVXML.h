#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <pugixml.hpp>

/// A parsed XML document with XPath 1.0 queries. Copies share the tree.
/// Queries never throw: a bad expression finds nothing.
class ZVXMLDocument {
public:
    /// Absent when the text is no well-formed XML.
    static std::optional<ZVXMLDocument> parse(const std::string& text);

    pugi::xml_node root() const { return _document->document_element(); }
    /// Nodes matching the expression, evaluated against the document.
    std::vector<pugi::xml_node> nodes(const std::string& xpath) const;
    /// The string value of the expression (text of the first node, or the
    /// result of a string function); absent when nothing matched.
    std::optional<std::string> string(const std::string& xpath) const;

    /// The same, evaluated against a node.
    static std::vector<pugi::xml_node> nodes(const pugi::xml_node& context, const std::string& xpath);
    static std::optional<std::string> string(const pugi::xml_node& context, const std::string& xpath);
    /// The node written out on one line, as the logs quote a record.
    static std::string printed(const pugi::xml_node& node);

private:
    std::shared_ptr<pugi::xml_document> _document;
};
