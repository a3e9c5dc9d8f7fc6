#include "junit.h"

#include <algorithm>

namespace vexoctl::junit
{

namespace
{

std::string escaped(const std::string &text)
{
    std::string xml;
    for (const char c : text)
        switch (c) {
        case '&':
            xml += "&amp;";
            break;
        case '<':
            xml += "&lt;";
            break;
        case '>':
            xml += "&gt;";
            break;
        case '"':
            xml += "&quot;";
            break;
        case '\n':
            xml += c;
            break;
        default: // XML has no other control characters
            xml += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
        }
    return xml;
}

std::string attribute(const char *name, const std::string &value)
{
    return std::string{" "} + name + "=\"" + escaped(value) + "\"";
}

std::string contentOf(const Case &one)
{
    if (!one.skipped.empty())
        return "<skipped" + attribute("message", one.skipped) + "/>";
    if (!one.failure.empty())
        return "<failure" + attribute("type", one.failure) + attribute("message", one.message) +
               ">" + escaped(one.text) + "</failure>";
    return "";
}

} // namespace

std::string suite(const std::string &name, const std::vector<Case> &cases, const std::string &date)
{
    const auto count = [&](std::string Case::*member) {
        return std::to_string(
            std::ranges::count_if(cases, [=](const Case &one) { return !(one.*member).empty(); }));
    };
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite" +
                      attribute("name", name) + attribute("tests", std::to_string(cases.size())) +
                      attribute("failures", count(&Case::failure)) + attribute("errors", "0") +
                      attribute("skipped", count(&Case::skipped)) +
                      (date.empty() ? "" : attribute("timestamp", date)) + ">\n";
    for (const Case &one : cases)
        xml += "  <testcase" + attribute("classname", one.group) + attribute("name", one.name) +
               ">" + contentOf(one) + "</testcase>\n";
    return xml + "</testsuite>\n";
}

} // namespace vexoctl::junit
