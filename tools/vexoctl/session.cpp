#include "session.h"

#include "catalog.h"
#include "invocation.h"
#include "print.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace vexoctl
{

using describe::Operation;

namespace
{

constexpr const char *WORDS_AND_RECORDS =
    "\n"
    "A number is decimal, or hexadecimal with 0x. A record is set field by field\n"
    "(psn.param1=7) or from a JSON document: params=@FILE, params=@- for standard\n"
    "input, params='{...}'. The document that a getter prints with --json can be\n"
    "given back as it is. What is applied always must be given. --json may stand\n"
    "anywhere in a command.\n";

std::string overview()
{
    std::string text;
    const auto add = [&](const std::string &usage, const std::string &purpose) {
        constexpr size_t COLUMN = 33;
        text += usage +
                (usage.size() + 2 > COLUMN ? "\n" + std::string(COLUMN, ' ')
                                           : std::string(COLUMN - usage.size(), ' ')) +
                purpose + "\n";
    };
    add("AREA OBJECT VERB name=value ...", "calls an operation: pdh frame set port=3 mode=2");
    for (const Command &command : commands())
        add(command.usage, command.purpose);
    add("sim ...", "controls the simulated device ('list sim')");
    return text + WORDS_AND_RECORDS;
}

const Names OPTIONS{"--json", "--device", "--script", "--version", "--help"};

// Options that are left when the program's own have been taken.
void refuseOptions(const Words &words)
{
    for (const std::string &word : words)
        if (word.starts_with('-'))
            throw UsageError("there is no option '" + word + "' here" + hint(word, OPTIONS));
}

// What std::cout is written through. The stream itself forgets why it could not be written.
class Output : public std::streambuf
{
  public:
    Output() : before_{std::cout.rdbuf(this)} {}
    ~Output() override { std::cout.rdbuf(before_); }

    int error() const { return error_; }

  protected:
    std::streamsize xsputn(const char *text, std::streamsize size) override
    {
        const auto length = static_cast<size_t>(size);
        return keep(fwrite(text, 1, length, stdout) == length) ? size : 0;
    }
    int_type overflow(int_type character) override
    {
        return keep(putchar(character) != EOF) ? character : EOF;
    }
    int sync() override { return keep(fflush(stdout) == 0) ? 0 : -1; }

  private:
    bool keep(bool written)
    {
        if (!written && error_ == 0)
            error_ = errno;
        return written;
    }

    std::streambuf *const before_;
    int error_ = 0;
} output;

// Once, and only where a person reads it.
void tellOfPrivateDevice()
{
    static bool told = !isatty(STDERR_FILENO) || !isPrivateDevice();
    if (!std::exchange(told, true))
        std::cerr << "vexoctl: neither --device nor KV_SIM_DEVICE names a simulated device: this "
                     "one is in memory, and gone with this process"
                  << std::endl;
}

} // namespace

Status finish(Status status)
{
    if (std::cout.flush())
        return status;
    std::cerr << "vexoctl: cannot write: " << strerror(output.error()) << std::endl;
    return FAILURE;
}

void Session::show(const Json &document) const
{
    if (json_)
        std::cout << document.dump(compact_ ? -1 : 2, ' ', false, Json::error_handler_t::replace)
                  << "\n";
    else
        std::cout << readable(document);
}

Status Session::refuse(const std::string &text) const
{
    if (json_) {
        show(Json{{"error", text}});
        std::cout << std::flush;
    } else {
        std::cerr << "vexoctl: " << text << std::endl;
    }
    return USAGE;
}

void Session::operate(const Words &words)
{
    size_t count = 0;
    const Operation &operation = operationOf(words, count);
    Invocation invocation{operation, {words.begin() + static_cast<ptrdiff_t>(count), words.end()}};
    tellOfPrivateDevice();
    const vexoResult &result = invocation.call();
    Json outputs = invocation.outputs(json_ ? Style::json : Style::human);
    outputs.update(takeSimOutput());
    if (result.rc != VEXO_RC_OK)
        throw Failure{spoken(operation.name), result};
    if (json_) {
        Json document{{"operation", spoken(operation.name)}, {"rc", 0}, {"message", ""}};
        document.update(outputs);
        show(document);
    } else {
        // What is shown alone needs no name.
        const bool isAlone = outputs.size() == 1 && outputs.front().is_structured();
        show(isAlone ? Json(outputs.front()) : outputs);
    }
}

void Session::list(const Words &words) const
{
    const auto found = operationsUnder({words.begin() + 1, words.end()});
    if (found.empty())
        throw UsageError("there is nothing under '" + words[1] +
                         "'; the areas are sys, pdh, pwe, ima and misc" +
                         (isSimulated() ? ", and sim for the simulated device" : ""));
    Json names = Json::array();
    for (const Operation *operation : found)
        names.push_back(spoken(operation->name));
    if (json_)
        return show(Json{{"operations", names}});
    for (const Operation *operation : found)
        std::cout << folded(usage(*operation), 4) << "\n";
}

void Session::help(const Words &words) const
{
    const auto showText = [&](const std::string &text) {
        if (json_)
            show(Json{{"help", text}});
        else
            std::cout << text;
    };
    if (words.size() < 2)
        return showText(overview());
    for (const Command &command : commands())
        if (words[1] == command.name)
            return showText(std::string{command.usage} + "\n\n" + command.more +
                            (words[1] == "metrics" ? metricFamiliesHelp() : ""));
    const auto found = operationsUnder({words.begin() + 1, words.end()});
    if (found.size() > 1)
        return list(words);
    size_t count = 0;
    const Json page = manual(operationOf({words.begin() + 1, words.end()}, count));
    if (json_)
        show(page);
    else
        std::cout << readableManual(page);
}

void Session::dispatch(const Words &words)
{
    static const std::map<std::string, void (*)(const Words &, bool)> own{
        {"watch", watch}, {"follow", follow}, {"metrics", metrics}};
    if (const auto found = own.find(words[0]); found != own.end()) {
        tellOfPrivateDevice();
        return found->second(words, json_);
    }
    if (words[0] == "complete") {
        for (const std::string &word : completions({words.begin() + 1, words.end()}))
            std::cout << word << "\n";
        return;
    }
    refuseOptions(words);
    if (words[0] == "list")
        list(words);
    else if (words[0] == "help")
        help(words);
    else
        operate(words);
}

Status Session::execute(const Words &given)
{
    Words words = given;
    if (!words.empty() && words[0] != "complete" && std::erase(words, "--json") > 0)
        return Session{true, compact_}.execute(words);
    Status status = SUCCESS;
    try {
        if (words.empty())
            throw UsageError("there is no command");
        dispatch(words);
    } catch (const UsageError &error) {
        status = refuse(error.what());
    } catch (const Failure &failure) {
        const auto rc = static_cast<uint32_t>(failure.result.rc);
        if (json_)
            show(Json{
                {"operation", failure.operation}, {"rc", rc}, {"message", failure.result.message}});
        else
            std::cerr << "vexoctl: " << failure.operation << ": failure " << rc << ": "
                      << failure.result.message << std::endl;
        status = FAILURE;
    }
    return finish(status);
}

Status Session::execute(const std::string &line)
{
    Words words;
    try {
        words = split(line);
    } catch (const UsageError &error) {
        return refuse(error.what());
    }
    return words.empty() ? SUCCESS : execute(words);
}

Status Session::script(std::istream &stream)
{
    size_t number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        const Status status = execute(line);
        if (status != SUCCESS) {
            std::cerr << "vexoctl: stopped at line " << number << std::endl;
            return status;
        }
    }
    return stream.bad() ? refuse(std::string{"cannot read the script: "} + strerror(errno))
                        : SUCCESS;
}

Words split(const std::string &line)
{
    if (line.find('\0') != std::string::npos)
        throw UsageError("there is a NUL in the line");
    Words words;
    std::string word;
    bool open = false;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != '\'' && c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            open = true;
        } else if (quote) {
            if (c == quote)
                quote = '\0';
            else
                word += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            open = true;
        } else if (c == '#' && !open) {
            break;
        } else if (isspace(static_cast<unsigned char>(c))) {
            if (open)
                words.push_back(word);
            word.clear();
            open = false;
        } else {
            word += c;
            open = true;
        }
    }
    if (quote)
        throw UsageError(std::string{"a quote is left open: "} + line);
    if (open)
        words.push_back(word);
    return words;
}

std::map<std::string, std::string> takeOptions(Words &words, const Names &names)
{
    Words others;
    std::map<std::string, std::string> options;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool isOption = words[i].starts_with("--");
        const std::string word = words[i].substr(isOption ? 2 : 0);
        const size_t sign = word.find('=');
        const std::string name = word.substr(0, sign);
        if (!std::ranges::count(names, name) || (sign == std::string::npos && !isOption)) {
            others.push_back(words[i]);
            continue;
        }
        if (sign == std::string::npos && i + 1 == words.size())
            throw UsageError(name + ": expected a value behind it");
        const std::string value = sign == std::string::npos ? words[++i] : word.substr(sign + 1);
        if (!options.emplace(name, value).second)
            throw UsageError(name + ": given twice");
    }
    words = others;
    return options;
}

void takeNumbers(Words &words, const std::map<std::string, uint32_t *> &numbers)
{
    Names names;
    for (const auto &[name, number] : numbers)
        names.push_back(name);
    for (const auto &[name, value] : takeOptions(words, names)) {
        uint32_t &number = *numbers.at(name);
        parse(describe::typeOf<uint32_t>(), name, value, &number);
        if (number == 0)
            throw UsageError(name + ": expected a number from 1, not 0");
    }
}

} // namespace vexoctl
