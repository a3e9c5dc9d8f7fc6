// A simulated device that is told to be like the one of a page.
#include "conform.h"
#include "print.h"
#include "session.h"

#include <algorithm>
#include <iostream>

#include <dlfcn.h>

namespace vexoctl
{

using namespace conformance;
using describe::Operation;

namespace
{

// A platform's code that the library reports as this one: the first of them where several are.
uint32_t platformCode(uint32_t code)
{
    return code < 8 ? code : code << 4;
}

// The code of "5 refused with 2"; 0 of anything else.
uint32_t codeIn(const std::string &finding)
{
    const size_t at = finding.find(REFUSED);
    return at == finding.npos
               ? 0
               : static_cast<uint32_t>(std::stoul(finding.substr(at + REFUSED.size())));
}

// Of an enumeration, which is handed over as a number is; clang's sanitizer knows them apart.
using Converter = uint32_t (*)(uint32_t);

__attribute__((no_sanitize("undefined"))) uint32_t converted(Converter converter, uint32_t number)
{
    return converter(number);
}

class Imitation
{
  public:
    explicit Imitation(const Json &page) : page_(page), simulated_(readJson("answers", SIMULATED))
    {
        for (const auto &[section, setting] :
             {std::pair{"pdh", "ports"}, {"pwe", "pwes"}, {"ima", "groups"}})
            takeNumber(section, setting);
        for (const Json &row : page_["answers"])
            if (row.contains("answer"))
                take(row);
        takeGetters();
        for (const auto &[name, counts] : codes_)
            settings_[name] =
                platformCode(std::ranges::max_element(counts, {}, [](const auto &one) {
                                 return one.second;
                             })->first);
    }

    void perform() const
    {
        for (const auto &[name, value] : settings_)
            simSet(name, value);
        for (const auto &[function, code] : refused_)
            simRefuse(function, platformCode(code));
    }

    // Questions that the device of the page answers otherwise, and of which nothing was taken over.
    Names left() const
    {
        Names names;
        for (const Json &row : page_["answers"])
            if (row.contains("differing") && !taken_.contains(row["question"]) &&
                !followsFromGetter(row["question"]))
                names.push_back(row["question"]);
        return names;
    }

  private:
    static Json part(const Json &findings, const std::string &name)
    {
        return findings.is_object() ? findings.value(name, Json::array()) : Json::array();
    }

    // Of what is set nothing can be said where its getter refuses.
    bool followsFromGetter(const std::string &question) const
    {
        return std::ranges::any_of(describe::operations(), [&](const Operation &operation) {
            const Operation *getter = getterOf(operation);
            return getter && question.starts_with(spoken(operation.name) + ": ") &&
                   taken_.contains(spoken(getter->name) + ": does it answer");
        });
    }

    void takeNumber(const std::string &section, const std::string &setting)
    {
        const std::string question = section + ": " + HOW_MANY;
        for (const Json &row : page_["answers"])
            if (row["question"] == question && row.contains("answer"))
                for (const Json &number : part(row["answer"], "numbers up to"))
                    if (const Json own = part(simulated_[question], "numbers up to");
                        number != own[0]) {
                        const auto told = std::stoul(number.get<std::string>());
                        // It can have fewer, not more.
                        if (told < std::stoul(own[0].get<std::string>())) {
                            settings_[setting] = static_cast<uint32_t>(told);
                            taken_.insert(question);
                        }
                    }
    }

    void take(const Json &row)
    {
        const auto question = row["question"].get<std::string>();
        if (question.ends_with(ABSENT)) {
            for (const Json &finding : part(row["answer"], "number beyond"))
                count(question, "code.no-object", codeIn(finding));
        } else if (question.ends_with(TAKES)) {
            for (const auto &[what, found] : row["answer"].items())
                for (const Json &finding : found)
                    takeValue(question, what, finding);
        } else if (question.find("added") != question.npos) {
            for (const auto &[what, found] : row["answer"].items())
                for (const Json &finding : found)
                    if (what.ends_with("added again"))
                        count(question, "code.exists", codeIn(finding));
        }
    }

    void count(const std::string &question, const std::string &setting, uint32_t code)
    {
        if (!code)
            return;
        ++codes_[setting][code];
        taken_.insert(question);
    }

    // "5 refused with 2" of "tdm-1 vlan.mode".
    void takeValue(const std::string &question, const std::string &what, const std::string &finding)
    {
        const uint32_t code = codeIn(finding);
        if (!code)
            return;
        const Json own = part(simulated_[question], what);
        const std::string value = finding.substr(0, finding.find(' '));
        const bool isRefusedHere = std::ranges::any_of(own, [&](const Json &one) {
            return one.get_ref<const std::string &>().starts_with(value + " refused");
        });
        if (isRefusedHere)
            return count(question, "code.bad-value", code);
        const describe::Type *type = typeOf(question, what.substr(what.find(' ') + 1));
        if (!type || type->kind != describe::Kind::enumeration)
            return;
        uint32_t number = 0;
        parse(*type, what, value, {.members = true}, &number);
        const std::string prefix = "refused.";
        for (const std::string &setting : simSettings()) {
            if (!setting.starts_with(prefix))
                continue;
            const std::string converter = type->name + ("_to_" + setting.substr(prefix.size()));
            const auto convert =
                reinterpret_cast<Converter>(dlsym(RTLD_DEFAULT, converter.c_str()));
            if (!convert)
                continue;
            settings_[setting] |= 1U << converted(convert, number);
            count(question, "code.bad-value", code);
        }
    }

    static const describe::Type *typeOf(const std::string &question, const std::string &path)
    {
        for (const Operation &operation : describe::operations())
            if (question.starts_with(spoken(operation.name) + ": "))
                for (const Assignable &one : assignable(operation))
                    if (one.name == path)
                        return one.type;
        return nullptr;
    }

    // A function of the platform refuses when all getters do that can't do without.
    void takeGetters()
    {
        std::map<std::string, std::set<uint32_t>> codes; // 0: something answers
        std::map<std::string, Names> questions;
        for (const Operation &operation : describe::operations())
            for (const Json &row : page_["answers"])
                if (row["question"] == spoken(operation.name) + ": does it answer" &&
                    row.contains("answer"))
                    for (const describe::Case &one : describe::casesOf(operation, 0))
                        for (const std::string &function : one.calls) {
                            questions[function].push_back(row["question"]);
                            for (const auto &[what, found] : row["answer"].items())
                                for (const Json &finding : found)
                                    codes[function].insert(codeIn(finding));
                        }
        for (const auto &[function, found] : codes)
            if (found.size() == 1 && !found.contains(0)) {
                refused_[function] = *found.begin();
                taken_.insert(questions[function].begin(), questions[function].end());
            }
    }

    const Json page_;
    const Json simulated_;
    std::map<std::string, uint32_t> settings_;
    std::map<std::string, std::map<uint32_t, int>> codes_; // how often each was met
    std::map<std::string, uint32_t> refused_;              // codes of functions
    std::set<std::string> taken_;
};

} // namespace

void simCreate(const Words &words, const Manner &manner)
{
    const std::string like = "--like";
    const bool isJoined = words.size() == 3 && words[2].starts_with(like + "=");
    if (!isJoined && (words.size() != 4 || words[2] != like))
        throw UsageError("expected --like FILE");
    if (!isSimulated())
        throw UsageError("there is no simulated device: these are the real platform libraries");
    const Imitation imitation{readPage(isJoined ? words[2].substr(like.size() + 1) : words[3])};
    simReset();
    imitation.perform();
    const Names left = imitation.left();
    if (manner.json)
        std::cout << Json{{"operation", "sim create"},
                          {"rc", 0},
                          {"message", ""},
                          {"notTakenOver", left}}
                         .dump()
                  << "\n";
    else
        for (const std::string &question : left)
            std::cerr << "vexoctl: sim create: not taken over: " << printable(question)
                      << std::endl;
}

} // namespace vexoctl
