// What is sent to those who help, in one archive.
#include "config_state.h"
#include "conform.h"
#include "print.h"
#include "session.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <dlfcn.h>
#include <link.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace vexoctl
{

using namespace conformance;

namespace
{

// ---- The archive, as POSIX has it ----

class Archive
{
  public:
    void add(const std::string &name, const std::string &content)
    {
        struct Header {
            char name[100], mode[8], owner[8], group[8], size[12], time[12], checksum[8], type,
                link[100], magic[8], user[32], groupName[32], device[16], prefix[155], unused[12];
        } header{};
        static_assert(sizeof header == BLOCK);
        snprintf(header.name, sizeof header.name, "vexo-report/%s", name.c_str());
        memcpy(header.mode, "0000644", 8);
        memcpy(header.owner, "0000000", 8);
        memcpy(header.group, "0000000", 8);
        snprintf(header.size, sizeof header.size, "%011zo", content.size());
        snprintf(header.time, sizeof header.time, "%011llo",
                 static_cast<unsigned long long>(time(nullptr)));
        header.type = '0';
        memcpy(header.magic, "ustar\00000", sizeof header.magic);
        memset(header.checksum, ' ', sizeof header.checksum);
        unsigned sum = 0;
        for (size_t i = 0; i < sizeof header; ++i)
            sum += reinterpret_cast<const unsigned char *>(&header)[i];
        snprintf(header.checksum, sizeof header.checksum, "%06o", sum);
        bytes_.append(reinterpret_cast<const char *>(&header), sizeof header);
        bytes_ += content;
        bytes_.resize((bytes_.size() + BLOCK - 1) / BLOCK * BLOCK);
    }

    std::string whole() const { return bytes_ + std::string(2 * BLOCK, '\0'); }

  private:
    static constexpr size_t BLOCK = 512;

    std::string bytes_;
};

// ---- What is in it ----

std::string contentOf(const std::string &file)
{
    std::ifstream stream{file, std::ios::binary};
    std::ostringstream text;
    if (!stream || !(text << stream.rdbuf()))
        throw UsageError("cannot read " + file + ": " + strerror(errno));
    return text.str();
}

// Which files the program runs with, and where it finds the platform's functions.
std::string librariesOf()
{
    std::string text = "vexoctl " VEXO_CMI_VERSION "\n";
    utsname host{};
    if (uname(&host) == 0)
        text += std::string{host.sysname} + " " + host.release + " " + host.machine + "\n";
    text += "\n";
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *to) {
            if (info->dlpi_name && *info->dlpi_name)
                *static_cast<std::string *>(to) += info->dlpi_name + std::string{"\n"};
            return 0;
        },
        &text);
    std::set<std::string> functions;
    for (const describe::Operation &operation : describe::operations())
        for (const describe::Case &one : describe::casesOf(operation, 1))
            functions.insert(one.calls.begin(), one.calls.end());
    text += "\n";
    for (const std::string &function : functions) {
        Dl_info where{};
        const void *symbol = dlsym(RTLD_DEFAULT, function.c_str());
        text += function + " ";
        text += !symbol ? "is missing" : dladdr(symbol, &where) ? where.dli_fname : "is there";
        text += "\n";
    }
    return text;
}

// Addresses of devices and their neighbours, wherever they stand.
void blank(const describe::Type &type, Json &value)
{
    if (type.kind == describe::Kind::mac && value.is_string())
        value = "00:00:00:00:00:00";
    else if (type.isAddress && !value.is_null())
        value = 0;
}

void blankAll(Json &json, const std::set<std::string> &macs, const std::set<std::string> &addresses)
{
    static const describe::Type MAC = describe::Row<describe::Mac>::type;
    for (auto &[name, value] : json.items())
        if (value.is_structured())
            blankAll(value, macs, addresses);
        else if (macs.contains(name))
            blank(MAC, value);
        else if (addresses.contains(name))
            blank(describe::ADDRESS, value);
}

// The names under which the operations tell or take addresses.
void blankAddresses(Json &json)
{
    std::set<std::string> macs, addresses;
    const auto note = [&](const char *name, const describe::Type &type) {
        if (type.kind == describe::Kind::mac)
            macs.insert(name);
        if (type.isAddress)
            addresses.insert(name);
    };
    for (const describe::Operation &operation : describe::operations())
        for (const describe::Argument &argument : operation.arguments)
            note(argument.name, *argument.type);
    for (const describe::Type *record : describe::records())
        for (const describe::Field &field : record->fields)
            note(field.name, *field.type);
    blankAll(json, macs, addresses);
}

std::string textOf(Json document, bool withAddresses)
{
    if (!withAddresses)
        blankAddresses(document);
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

struct Given {
    std::string file, page, recording;
    bool withAddresses = false;
};

Given given(const Words &words)
{
    const Names known{"--page", "--recording", "--with-addresses"};
    Given given;
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t sign = words[i].find('=');
        const std::string name = words[i].substr(0, sign);
        if (words[i] == known[2]) {
            given.withAddresses = true;
        } else if (name == known[0] || name == known[1]) {
            if (sign == std::string::npos && i + 1 == words.size())
                throw UsageError(name + ": expected a file behind it");
            (name == known[0] ? given.page : given.recording) =
                sign == std::string::npos ? words[++i] : words[i].substr(sign + 1);
        } else if (words[i].starts_with("--")) {
            throw UsageError("there is no option '" + words[i] + "' here" + hint(words[i], known));
        } else if (!given.file.empty()) {
            throw UsageError("expected nothing more, not '" + words[i] + "'");
        } else {
            given.file = words[i];
        }
    }
    if (given.file.empty())
        throw UsageError("expected a file to write to");
    return given;
}

} // namespace

void report(const Words &words, const Manner &manner)
{
    Given options = given(words);
    constexpr const char *RECORDING = "vexo.trace";
    if (options.recording.empty() && std::filesystem::exists(RECORDING))
        options.recording = RECORDING;
    Archive archive;
    archive.add("libraries.txt", librariesOf());
    archive.add("device.json",
                textOf({{"date", dateNow()}, {"device", deviceOf()}}, options.withAddresses));
    const Json page = options.page.empty() ? pageOf(ask([](const std::string &) {}, {}), false)
                                           : readPage(options.page);
    archive.add("conform.json", textOf(page, options.withAddresses));
    config::Device device;
    archive.add("configuration.json",
                textOf(config::toJson(config::save(device, {}, true)), options.withAddresses));
    if (const Json log = simLog(); !log.is_null())
        archive.add("log.json", textOf(log, options.withAddresses));
    if (!options.recording.empty())
        archive.add("recording.trace", contentOf(options.recording));
    replaceFile(options.file, archive.whole());
    if (manner.json)
        std::cout << Json{{"operation", "report"},
                          {"rc", 0},
                          {"message", ""},
                          {"file", options.file}}
                         .dump()
                  << "\n";
}

} // namespace vexoctl
