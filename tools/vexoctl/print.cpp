#include "print.h"

#include <algorithm>
#include <ctime>
#include <sstream>

#include <sys/ioctl.h>
#include <unistd.h>

namespace vexoctl
{

namespace
{

std::string scalarText(const Json &json)
{
    return json.is_string() ? printable(json.get<std::string>()) : json.dump();
}

// Shown on one line: lists of numbers, and in lists also records of nothing but values.
bool isFlat(const Json &json)
{
    return json.is_array() &&
           std::all_of(json.begin(), json.end(), [](const Json &item) { return item.is_number(); });
}

bool isFlatRecord(const Json &json)
{
    return json.is_object() && std::all_of(json.begin(), json.end(), [](const Json &item) {
               return item.is_primitive() || isFlat(item);
           });
}

std::string lineOf(const Json &json)
{
    std::string line;
    for (const auto &[name, item] : json.items()) {
        if (json.is_object())
            line += (line.empty() ? " " : ", ") + name;
        line += item.is_primitive() ? " " + scalarText(item) : lineOf(item);
    }
    return line.empty() ? " none" : line;
}

Zone shownZone;

// How many columns there are to print on; no end of them where no person looks.
size_t width()
{
    constexpr size_t USUAL = 80;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return SIZE_MAX;
    return size.ws_col ? size.ws_col : USUAL;
}

} // namespace

std::string printable(const std::string &text)
{
    const std::string quoted = Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string result;
    for (const char c : Json::parse(quoted).get<std::string>()) {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[5];
        snprintf(escaped, sizeof escaped, "\\x%02x", byte);
        result += byte < ' ' || byte == 0x7F ? escaped : std::string(1, c);
    }
    return result;
}

std::string aligned(const std::string &name, const std::string &text, size_t column)
{
    const std::string head = folded(name, 4);
    if (head.find('\n') != head.npos)
        return head + "\n" + folded(std::string(column, ' ') + text, column) + "\n";
    const size_t used = std::max(name.size() + 2, column);
    const std::string gap(used - name.size(), ' ');
    return name + gap + folded(std::string(used, ' ') + text, column).substr(used) + "\n";
}

std::string folded(const std::string &text, size_t indent)
{
    const size_t columns = width();
    std::istringstream words{text};
    std::string result(text, 0, std::min(text.find_first_not_of(' '), text.size()));
    size_t column = result.size();
    bool first = true;
    for (std::string word; words >> word;) {
        if (!first && column + 1 + word.size() > columns) {
            result += '\n' + std::string(indent, ' ');
            column = indent;
        } else if (!first) {
            result += ' ';
            ++column;
        }
        result += word;
        column += word.size();
        first = false;
    }
    return result;
}

std::string timeText(uint64_t microseconds, Zone zone)
{
    constexpr uint64_t SECOND = 1000000;
    const auto seconds = static_cast<time_t>(microseconds / SECOND);
    tm fields{};
    zone == Zone::local ? localtime_r(&seconds, &fields) : gmtime_r(&seconds, &fields);
    char date[32], behind[8] = "Z", fraction[8];
    strftime(date, sizeof date, "%FT%T", &fields);
    snprintf(fraction, sizeof fraction, ".%06u", static_cast<unsigned>(microseconds % SECOND));
    if (zone == Zone::local)
        strftime(behind, sizeof behind, "%z", &fields);
    std::string text = std::string{date} + fraction + behind;
    if (zone == Zone::local)
        text.insert(text.size() - 2, ":");
    return text;
}

void setZone(Zone zone)
{
    shownZone = zone;
}

Zone zone()
{
    return shownZone;
}

std::string readable(const Json &document, size_t indent)
{
    const std::string margin(indent, ' ');
    std::string text;
    for (const auto &[name, element] : document.items()) {
        const std::string head = margin + (document.is_array() ? "-" : name + ":");
        if (element.is_primitive())
            text += head + " " + scalarText(element) + "\n";
        else if (element.empty() || isFlat(element) ||
                 (document.is_array() && isFlatRecord(element)))
            text += folded(head + lineOf(element), indent + 4) + "\n";
        else
            text += head + "\n" + readable(element, indent + 2);
    }
    return text;
}

} // namespace vexoctl
