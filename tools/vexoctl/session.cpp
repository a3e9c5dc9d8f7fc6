#include "session.h"

#include "catalog.h"
#include "manual.h"
#include "print.h"
#include "request.h"
#include "stop.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <tuple>
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
    "must be given. Ports, pseudowires, groups and links can be lists: pwId=1-50,60 or, of all "
    "that "
    "there are, pwId=all. --json, --help (also -h and ?) and the options that 'vexoctl --help' "
    "shows may stand anywhere in a command.";

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
    const Names ofProgram{"--device", "--script", "--version", "--atomic", "--keep-going"};
    Names all = optionNames();
    all.push_back("--help");
    std::ranges::copy(ofProgram, std::back_inserter(all));
    for (const std::string &word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (std::ranges::count(ofProgram, name) > 0)
            throw UsageError("the option " + name + " can only be given when vexoctl is started");
        if (word.starts_with('-'))
            throw UsageError("there is no option '" + word + "' here" + hint(word, all));
    }
}

AddressOrder addressOrder(const std::string &given)
{
    if (given.empty())
        return isSimulated() ? AddressOrder::host : AddressOrder::unknown;
    return given == "host" ? AddressOrder::host : AddressOrder::network;
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

std::string Session::text(const Json &document) const
{
    if (manner_.json)
        return document.dump(compact_ ? -1 : 2, ' ', false, Json::error_handler_t::replace) + "\n";
    return readable(document);
}

void Session::show(const Json &document) const
{
    std::cout << text(document);
}

std::string Session::error(std::optional<uint32_t> code, const std::string &message,
                           const Json &details) const
{
    const auto orNull = [](const auto &value, bool isKnown) {
        return isKnown ? Json(value) : Json{};
    };
    if (manner_.json) {
        Json document{{"operation", orNull(operation_, !operation_.empty())},
                      {"rc", orNull(code.value_or(0), code.has_value())},
                      {"message", message},
                      {"error", message},
                      {"file", orNull(file_, line_ > 0)},
                      {"line", orNull(line_, line_ > 0)}};
        document.update(details);
        return text(document);
    }
    return "vexoctl: " + (line_ ? printable(file_) + ":" + std::to_string(line_) + ": " : "") +
           (operation_.empty() ? "" : operation_ + ": ") +
           (code ? "failure " + std::to_string(*code) + ": " : "") + printable(message) + "\n";
}

Status Session::tell(std::optional<uint32_t> code, const std::string &message,
                     const Json &details) const
{
    (manner_.json ? std::cout : std::cerr) << error(code, message, details) << std::flush;
    return code ? FAILURE : USAGE;
}

Status Session::refuse(const std::string &text) const
{
    return tell({}, text);
}

void Session::agree(const std::string &end) const
{
    if (manner_.yes || line_ > 0 || !isatty(STDIN_FILENO) || !isatty(STDERR_FILENO))
        return;
    std::cerr << "vexoctl: " << operation_ << " " << end << "; go on? [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer) || !(answer.starts_with('y') || answer.starts_with('Y')))
        throw UsageError("nothing was done; --yes does it without asking");
}

void Session::remember(const Operation &operation, const Invocation &invocation)
{
    if (!atomic_ || config::isGetter(operation))
        return;
    const config::Key key = *config::settingOf(operation, invocation.objectNumber());
    config::Reading before = config::read(device_, key);
    if (before.settings && before.settings->is_null()) {
        Failure failure{operation_, {VEXO_RC_GENERAL, ""}};
        strcpy_n(failure.result.message, ("it could not be undone: " + before.reason).c_str(),
                 sizeof failure.result.message);
        throw failure;
    }
    undo_.remember(key, std::move(before.settings));
}

// What is wrong otherwise is found when the line is run.
void Session::checkUndoable(const std::string &line) const
{
    Manner ignored;
    Words words = takeOptions(lex(line).words, ignored);
    if (words.empty())
        return;
    if (const Command *own = commandOf(words)) {
        constexpr std::string_view NO_PART[] = {"config apply", "watch", "follow", "metrics"};
        if (std::ranges::count(NO_PART, own->name))
            throw UsageError(own->name + std::string{" is no part of a script with --atomic"});
        return;
    }
    size_t count = 0;
    const Operation &operation = operationOf(words, count);
    const bool reads = config::isGetter(operation) && operation.role.use != describe::Use::action;
    if (!reads && !config::settingOf(operation, 0))
        throw UsageError(spoken(operation.name) + " can't be undone, which --atomic asks for");
}

void Session::undo()
{
    config::Report report;
    undo_.run(report);
    if (manner_.json)
        show({{"undone", report.undone}, {"notUndone", config::listOf(report.notUndone)}});
    else
        for (const std::string &told : config::undoLines(report))
            std::cerr << "vexoctl: " << printable(told) << std::endl;
}

Status Session::operate(const Words &words)
{
    size_t count = 0;
    const Operation &operation = operationOf(words, count);
    operation_ = spoken(operation.name);
    Names given{words.begin() + static_cast<ptrdiff_t>(count), words.end()};
    tellOfPrivateDevice();
    printAs(manner_.json);
    limitCalls();
    const std::vector<const Operation *> asked{&operation};
    choose(asked, Json::object(), manner_.fields);
    if (const auto objects = takeObjects(operation, given))
        return operateOnEach(operation, *objects, given);
    const auto [result, outputs] =
        request(operation, given, manner_, manner_.json ? Style::json : Style::human,
                [&](const Invocation &invocation) {
                    if (const std::string end = endOf(operation, invocation); !end.empty())
                        agree(end);
                    remember(operation, invocation);
                });
    if (result.rc != VEXO_RC_OK)
        throw Failure{operation_, result};
    if (outputs.is_null()) // it has been printed line by line
        return SUCCESS;
    const Fields fields = choose(asked, outputs, manner_.fields);
    if (manner_.values && !manner_.json) {
        std::cout << lineOf(fields);
    } else if (manner_.json || !manner_.fields.empty()) {
        Json document;
        if (manner_.json)
            document = {{"operation", operation_}, {"rc", 0}, {"message", ""}};
        document.update(manner_.fields.empty() ? outputs : asObject(fields));
        show(document);
    } else {
        // What is shown alone needs no name.
        const bool isAlone = outputs.size() == 1 && outputs.front().is_structured();
        show(isAlone ? Json(outputs.front()) : outputs);
    }
    return SUCCESS;
}

Status Session::operateOnEach(const Operation &operation, const Objects &objects, Names words)
{
    takeFiles(operation, words);
    bool isAgreed = false;
    const auto before = [&](const Invocation &invocation) {
        const std::string end = endOf(operation, invocation);
        if (!end.empty() && !std::exchange(isAgreed, true))
            agree(end + ", each of " + std::to_string(objects.numbers.size()));
        remember(operation, invocation);
    };
    std::vector<std::pair<uint32_t, Fields>> shown;
    Json document{{"operation", operation_},
                  {"rc", 0},
                  {"message", ""},
                  {"failed", 0},
                  {"objects", Json::array()}};
    size_t failed = 0;
    for (const uint32_t number : objects.numbers) {
        const std::string object = objects.name + "=" + std::to_string(number);
        Names own = words;
        own.push_back(object);
        Answer answer;
        try {
            answer =
                request(operation, own, manner_, manner_.json ? Style::json : Style::human, before);
        } catch (const Failure &failure) {
            answer = {failure.result, Json::object()};
        }
        const auto &[result, outputs] = answer;
        const uint32_t code = static_cast<uint32_t>(result.rc);
        const bool isDone = result.rc == VEXO_RC_OK;
        const Fields fields = isDone ? choose({&operation}, outputs, manner_.fields) : Fields{};
        if (!isDone && failed++ == 0)
            document["rc"] = code;
        if (manner_.json) {
            Json &row = document["objects"].emplace_back(
                Json{{objects.name, number}, {"rc", code}, {"message", result.message}});
            row.update(manner_.fields.empty() ? outputs : asObject(fields));
        } else if (!isDone) {
            tell(code, object + ": " + result.message);
        } else if (fields.empty()) {
            std::cout << object << ": done" << std::endl;
        } else if (manner_.values) {
            std::cout << number << "\t" << lineOf(fields);
        } else {
            shown.emplace_back(number, fields);
        }
    }
    const std::string summary =
        std::to_string(failed) + " of " + std::to_string(objects.numbers.size()) + " failed";
    if (manner_.json) {
        document["failed"] = failed;
        document["message"] = failed ? summary : "";
        show(document);
    } else {
        std::cout << table(objects.name, shown);
        if (failed)
            std::cerr << "vexoctl: " << operation_ << ": " << summary << std::endl;
    }
    return failed ? FAILURE : SUCCESS;
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
    if (manner_.json)
        return show(document);
    for (const Operation *operation : found)
        std::cout << folded(usage(*operation), 4) << "\n";
}

void Session::help(const Words &words) const
{
    const auto showText = [&](const std::string &text) {
        if (manner_.json)
            show(Json{{"help", text}});
        else
            std::cout << text;
    };
    if (words.size() < 2)
        return showText(overview());
    const Words said{words.begin() + 1, words.end()};
    if (const Command *command = commandOf(said))
        return showText(folded(command->usage, 4) + "\n\n" + folded(command->more) + "\n" +
                        (words[1] == "metrics" ? metricFamiliesHelp() : ""));
    std::string begun;
    for (const Command &command : commands())
        if (std::string{command.name}.starts_with(joined(said, " ") + " "))
            begun += aligned(command.usage, command.purpose, 33);
    if (!begun.empty() && operationsUnder(said).empty())
        return showText(begun);
    if (operationsUnder(said).size() > 1 && !isOperation(said))
        return list(words);
    size_t count = 0;
    const Operation &operation = operationOf(said, count);
    if (manner_.json)
        show(manualDocument(operation));
    else
        std::cout << manualText(operation);
}

void Session::limitCalls() const
{
    setCallLimit(manner_.timeout, [this](const Stopped &stopped) { refuse(stopped.what()); });
}

Status Session::dispatch(const Words &words)
{
    if (const Command *own = commandOf(words); own && own->run) {
        tellOfPrivateDevice();
        limitCalls();
        if (!manner_.changes.empty() ||
            (!own->showsFields && (manner_.values || !manner_.fields.empty())))
            throw UsageError("--change, --fields and --values are of no use here");
        own->run(words, manner_);
        return SUCCESS;
    }
    refuseOptions(words);
    if (words[0] != "list" && words[0] != "help" && words[0] != "exit" && words[0] != "quit")
        return operate(words);
    if (words[0] == "list")
        list(words);
    else if (words[0] == "help")
        help(words);
    else
        leave(words);
    return SUCCESS;
}

void Session::leave(const Words &words)
{
    if (words.size() > 1)
        throw UsageError("expected nothing behind it, not '" + words[1] + "'");
    isOver_ = true;
    if (manner_.json)
        show(Json{{"operation", words[0]}, {"rc", 0}, {"message", ""}});
}

Status Session::run(Words words)
{
    operation_.clear();
    // Where the options can't be read, --json is heeded all the same.
    manner_.json |= std::ranges::count(words, "--json") > 0;
    try {
        words = takeOptions(words, manner_);
        setAddressOrder(addressOrder(manner_.ipOrder));
        setZone(manner_.zone == "local" ? Zone::local
                : manner_.zone == "utc" ? Zone::utc
                                        : Zone::none);
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
        if (const Command *own = commandOf(words))
            operation_ = own->name;
        const Status status = dispatch(words);
        Interruptible::check();
        return status;
    } catch (const UsageError &error) {
        return refuse(error.what());
    } catch (const Stopped &stopped) {
        refuse(stopped.what());
        return stopped.status;
    } catch (const Failure &failure) {
        operation_ = failure.operation;
        std::optional<uint32_t> code;
        if (failure.status == FAILURE)
            code = static_cast<uint32_t>(failure.result.rc);
        tell(code, failure.result.message, failure.details);
        return failure.status;
    } catch (const Status status) {
        return status;
    }
}

Status Session::execute(const Words &given)
{
    Status status = SUCCESS;
    if (!given.empty() && given[0] == "complete") {
        for (const std::string &word : completions({given.begin() + 1, given.end()}))
            std::cout << word << "\n";
    } else {
        const Manner usual = manner_;
        status = run(given);
        manner_ = usual;
        isOver_ |= status == TIMEOUT || (status == INTERRUPTED && line_ > 0);
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
    size_t number = 0, failed = 0;
    Status first = SUCCESS;
    const auto next = [&](std::string &line) {
        if (!readLine(stream, line))
            return false;
        line_ = ++number;
        for (std::string more; lex(line).isContinued && readLine(stream, more); ++number)
            line.replace(line.size() - 1, 1, more);
        return true;
    };
    // Of an atomic script all lines are looked at before the first is run.
    std::deque<std::pair<size_t, std::string>> checked;
    for (std::string line; atomic_ && next(line);) {
        checked.emplace_back(line_, line);
        try {
            checkUndoable(line);
        } catch (const UsageError &error) {
            return refuse(error.what());
        }
    }
    std::optional<Interruptible> interruptible;
    if (atomic_)
        interruptible.emplace();
    const auto take = [&](std::string &line) {
        if (!atomic_)
            return next(line);
        if (checked.empty() || isBroken(stream))
            return false;
        std::tie(line_, line) = std::move(checked.front());
        checked.pop_front();
        return true;
    };
    for (std::string line; !isOver_ && take(line);) {
        const Status status = execute(line);
        if (status == SUCCESS)
            continue;
        if (!keepsGoing_ || isOver_) {
            std::cerr << "vexoctl: stopped at line " << line_ << std::endl;
            if (atomic_)
                undo();
            return status;
        }
        if (failed++ == 0)
            first = status;
    }
    if (failed)
        std::cerr << "vexoctl: " << failed << (failed == 1 ? " command" : " commands") << " failed"
                  << std::endl;
    line_ = 0;
    operation_.clear();
    return isBroken(stream) ? refuse("cannot read " + file + ": " + strerror(errno)) : first;
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
