#include "services/kit/ServiceFixtures.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace ServiceFixtures {

std::string load(const std::string& relativePath, const std::map<std::string, std::string>& substitutions) {
    const char* root = std::getenv("NORVO_SOURCE_ROOT");
    const std::string path = std::string(root ? root : ".") + "/tests/services/fixtures/" + relativePath;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        ADD_FAILURE() << "Missing fixture " << path;
        return {};
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    std::string text = contents.str();
    for (const auto& [name, value] : substitutions) {
        const std::string placeholder = "{{" + name + "}}";
        for (size_t at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + value.size()))
            text.replace(at, placeholder.size(), value);
    }
    return text;
}

}  // namespace ServiceFixtures
