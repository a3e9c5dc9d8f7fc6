#include "session.h"

#include "catalog.h"
#include "invocation.h"
#include "manual.h"
#include "print.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace vexoctl
{

using describe::Operation;

namespace
{

constexpr const char *WORDS_AND_RECORDS =
    "A number is decimal, or hexadecimal with 0x. A record is set field by field (psn.param1=7) or "
    "from a JSON document: params=@FILE, params=@- for standard input, params='{...}'. The "
    "document that a getter prints with --json can be given back as it is. What is applied always "
    "must be given. --json, --help (also -h and ?) and --force, which sends numbers also where "
    "they are no members of their enumeration, may stand anywhere in a command.";

std::string overview()
{
    std::string text;
    const auto add = [&](const std::string &usage, const std::string &purpose) {
        text += aligned(usage, purpose, 33);
    };
    add("AREA OBJECT VERB name=value ...", "calls an operation: pdh frame set port=3 mode=2");
    for (const Command &command : commands())
        add(command.usage, command.purpose);
    add("sim ...", "controls the simulated device ('list sim')");
    return text + "\n" + folded(WORDS_AND_RECORDS) + "\n";
}

// Options that are left when those have been taken that may stand here.
void refuseOptions(const Words &words)
{
    const Names ofProgram{"--device", "--script", "--version"};
    Names all{"--json", "--force", "--help"};
    all.insert(all.end(), ofProgram.begin(), ofProgram.end());
    for (const std::string &word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (std::find(ofProgram.begin(), ofProgram.end(), name) != ofProgram.end())
            throw UsageError("the option " + name + " can only be given when vexoctl is started");
        if (word.starts_with('-'))
            throw UsageError("there is no option '" + word + "' here" + hint(word, all));
    }
}

// A line without its end, which is that of another system, too.
bool readLine(std::istream &stream, std::string &line)
{
    if (!std::getline(stream, line))
        return false;
    if (line.ends_with('\r'))
        line.pop_back();
    return true;
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

Status Session::tell(std::optional<uint32_t> code, const std::string &text) const
{
    const auto orNull = [](const auto &value, bool isKnown) {
        return isKnown ? Json(value) : Json{};
    };
    if (json_) {
        show(Json{{"operation", orNull(operation_, !operation_.empty())},
                  {"rc", orNull(code.value_or(0), code.has_value())},
                  {"message", text},
                  {"error", text},
                  {"file", orNull(file_, line_ > 0)},
                  {"line", orNull(line_, line_ > 0)}});
        std::cout << std::flush;
    } else {
        std::cerr << "vexoctl: "
                  << (line_ ? printable(file_) + ":" + std::to_string(line_) + ": " : "")
                  << (operation_.empty() ? "" : operation_ + ": ")
                  << (code ? "failure " + std::to_string(*code) + ": " : "") << printable(text)
                  << std::endl;
    }
    return code ? FAILURE : USAGE;
}

Status Session::refuse(const std::string &text) const
{
    return tell({}, text);
}

void Session::operate(const Words &words)
{
    size_t count = 0;
    const Operation &operation = operationOf(words, count);
    operation_ = spoken(operation.name);
    Invocation invocation{
        operation, {words.begin() + static_cast<ptrdiff_t>(count), words.end()}, force_};
    tellOfPrivateDevice();
    printAs(json_);
    const vexoResult &result = invocation.call();
    const Json outputs = invocation.outputs(json_ ? Style::json : Style::human);
    if (result.rc != VEXO_RC_OK)
        throw Failure{operation_, result};
    if (outputs.is_null()) // it has been printed line by line
        return;
    if (json_) {
        Json document{{"operation", operation_}, {"rc", 0}, {"message", ""}};
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
        throw UsageError("there is nothing under '" +
                         joined({words.begin() + 1, words.end()}, " ") +
                         "'; the areas are sys, pdh, pwe, ima and misc" +
                         (isSimulated() ? ", and sim for the simulated device" : ""));
    Json document{{"operations", Json::array()}, {"calls", Json::object()}};
    for (const Operation *operation : found) {
        document["operations"].push_back(spoken(operation->name));
        document["calls"][spoken(operation->name)] = callsOf(*operation);
    }
    if (json_)
        return show(document);
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
    if (const Command *command = commandNamed(words[1]))
        return showText(folded(command->usage, 4) + "\n\n" + folded(command->more) + "\n" +
                        (words[1] == "metrics" ? metricFamiliesHelp() : ""));
    const Words said{words.begin() + 1, words.end()};
    if (operationsUnder(said).size() > 1 && !isOperation(said))
        return list(words);
    size_t count = 0;
    const Operation &operation = operationOf(said, count);
    if (json_)
        show(manualDocument(operation));
    else
        std::cout << manualText(operation);
}

void Session::dispatch(const Words &words)
{
    if (const Command *own = commandNamed(words[0]); own && own->run) {
        tellOfPrivateDevice();
        return own->run(words, json_);
    }
    refuseOptions(words);
    if (words[0] == "list")
        return list(words);
    if (words[0] == "help")
        return help(words);
    if (words[0] != "exit" && words[0] != "quit")
        return operate(words);
    if (words.size() > 1)
        throw UsageError("expected nothing behind it, not '" + words[1] + "'");
    isOver_ = true;
    if (json_)
        show(Json{{"operation", words[0]}, {"rc", 0}, {"message", ""}});
}

Status Session::run(Words words)
{
    operation_.clear();
    try {
        if (std::erase_if(words, [](const std::string &word) {
                return word == "--help" || word == "-h" || word == "?";
            }) > 0) {
            // Of what has been typed so far, the words that name the operation.
            std::erase_if(words, [](const std::string &word) {
                return word.starts_with('-') || word.find('=') != std::string::npos;
            });
            if (words.empty() || words[0] != "help")
                words.insert(words.begin(), "help");
        }
        if (words.empty())
            throw UsageError("there is no command");
        if (commandNamed(words[0]))
            operation_ = words[0];
        dispatch(words);
        return SUCCESS;
    } catch (const UsageError &error) {
        return refuse(error.what());
    } catch (const Failure &failure) {
        operation_ = failure.operation;
        return tell(static_cast<uint32_t>(failure.result.rc), failure.result.message);
    }
}

Status Session::execute(const Words &given)
{
    Status status = SUCCESS;
    if (!given.empty() && given[0] == "complete") {
        for (const std::string &word : completions({given.begin() + 1, given.end()}))
            std::cout << word << "\n";
    } else {
        Words words = given;
        const bool usually = json_;
        json_ |= std::erase(words, "--json") > 0;
        force_ = std::erase(words, "--force") > 0;
        status = run(words);
        json_ = usually;
    }
    return finish(status);
}

Status Session::execute(const std::string &line)
{
    const bool isWhole = line.find('\0') == line.npos;
    const Lexed lexed = lex(line);
    if (isWhole && !lexed.isQuoteOpen)
        return lexed.words.empty() ? SUCCESS : execute(lexed.words);
    operation_.clear();
    return refuse(isWhole ? "a quote is left open: " + line : "there is a NUL in the line");
}

Status Session::script(const std::string &file)
{
    std::ifstream opened;
    if (file != "-")
        opened.open(file);
    std::istream &stream = file == "-" ? std::cin : opened;
    if (!stream)
        return refuse("cannot read " + file + ": " + strerror(errno));
    compact_ = true;
    file_ = file;
    size_t number = 0;
    for (std::string line; readLine(stream, line);) {
        line_ = ++number;
        for (std::string next; lex(line).isContinued && readLine(stream, next); ++number)
            line.replace(line.size() - 1, 1, next);
        const Status status = execute(line);
        if (status != SUCCESS)
            std::cerr << "vexoctl: stopped at line " << line_ << std::endl;
        if (status != SUCCESS || isOver_)
            return status;
    }
    line_ = 0;
    operation_.clear();
    return isBroken(stream) ? refuse("cannot read " + file + ": " + strerror(errno)) : SUCCESS;
}

Lexed lex(const std::string &line)
{
    // What a backslash quotes between double quotes; elsewhere it is everything.
    constexpr std::string_view QUOTABLE = "\"\\$`";
    Lexed lexed{};
    std::string word;
    bool open = false;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool isLast = i + 1 == line.size();
        if (quote != '\'' && c == '\\' && isLast) {
            lexed.isContinued = true;
            word += c;
            open = true;
        } else if (quote != '\'' && c == '\\' &&
                   (!quote || QUOTABLE.find(line[i + 1]) != std::string_view::npos)) {
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
                lexed.words.push_back(word);
            word.clear();
            open = false;
        } else {
            word += c;
            open = true;
        }
    }
    lexed.isWordOpen = open;
    lexed.isQuoteOpen = quote != '\0';
    if (open)
        lexed.words.push_back(word);
    return lexed;
}

} // namespace vexoctl
