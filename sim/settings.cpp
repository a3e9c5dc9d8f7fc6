// The settings of the simulated device: its control interface by names.
#include "control.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

using namespace sim;

namespace
{

using Place = std::span<uint8_t>;

enum class Form { flags, number, text };

// A setting, or one for each number: '#' stands for it.
struct Setting {
    const char *name;
    Place (*at)(State &state, uint32_t number);
    Form form;
    uint32_t first = 0;
    uint32_t last = 0;
    uint32_t most = UINT32_MAX;
};

template <class Field>
Place bytesOf(Field &field)
{
    return {reinterpret_cast<uint8_t *>(&field), sizeof field};
}

#define AT(field) [](State &state, [[maybe_unused]] uint32_t n) { return bytesOf(state.field); }
#define BEHAVIOUR(name, field)                                                                     \
    {                                                                                              \
        name, AT(behaviours.field), Form::flags                                                    \
    }

// The inventory and the versions are numbered as the library's operations number them.
constexpr Setting SETTINGS[] = {
    {"behaviours", AT(behaviours), Form::flags},
    BEHAVIOUR("system-state", systemState),
    BEHAVIOUR("loopback-alarms", loopbackAlarms),
    BEHAVIOUR("circuit-alarms", circuitAlarms),
    BEHAVIOUR("port-alarms", portAlarms),
    BEHAVIOUR("link-alarms", linkAlarms),
    BEHAVIOUR("load-version", loadVersion),
    BEHAVIOUR("load-restart", loadRestart),
    BEHAVIOUR("consistency", consistency),
    BEHAVIOUR("log-alarm", logAlarm),
    {"load-downtime", AT(loadDowntime), Form::number, 0, 0, 86400},
    {"temperature", AT(system.temperature), Form::number},
    {"signal.#", AT(ports[n - 1].signal), Form::flags, 1, KV_SIM_PORTS},
    {"links-needed.#", AT(linksNeeded[n - 1]), Form::number, 1, KV_SIM_GROUPS, IMA_LINK_MAX},
    {"link.status", AT(system.link.words[0]), Form::number},
    {"link.speed", AT(system.link.words[1]), Form::number},
    {"link.param", AT(system.link.words[2]), Form::number},
    {"link.flag", AT(system.link.words[4]), Form::number},
    {"link.mode", AT(system.link.words[5]), Form::number},
    {"inventory.text1", AT(system.params.text410), Form::text},
    {"inventory.text2", AT(system.params.text328), Form::text},
    {"inventory.text3", AT(system.params.text425), Form::text},
    {"inventory.text4", AT(system.params.text446), Form::text},
    {"inventory.text5", AT(system.params.text461), Form::text},
    {"inventory.number", AT(system.params.number), Form::number},
    {"ports", AT(likeness.ports), Form::number, 0, 0, KV_SIM_PORTS},
    {"pwes", AT(likeness.pwes), Form::number, 0, 0, KV_SIM_PWS},
    {"groups", AT(likeness.groups), Form::number, 0, 0, KV_SIM_GROUPS},
    {"code.bad-value", AT(likeness.codes[0]), Form::number},
    {"code.no-object", AT(likeness.codes[1]), Form::number},
    {"code.full", AT(likeness.codes[2]), Form::number},
    {"code.exists", AT(likeness.codes[3]), Form::number},
    {"code.state", AT(likeness.codes[4]), Form::number},
    {"refused.eqptMode", AT(likeness.refused[0]), Form::number},
    {"refused.adminStatus", AT(likeness.refused[1]), Form::number},
    {"refused.pdhFrameMode", AT(likeness.refused[2]), Form::number},
    {"refused.pdhCode", AT(likeness.refused[3]), Form::number},
    {"refused.pdhNiuMode", AT(likeness.refused[4]), Form::number},
    {"refused.pdhClockMode", AT(likeness.refused[5]), Form::number},
    {"refused.lpbk", AT(likeness.refused[6]), Form::number},
    {"refused.tagMode", AT(likeness.refused[7]), Form::number},
    {"refused.pweIpUdpMode", AT(likeness.refused[8]), Form::number},
    {"refused.pweEncType", AT(likeness.refused[9]), Form::number},
    {"refused.pweAtmXcType", AT(likeness.refused[10]), Form::number},
    {"refused.alarmMode", AT(likeness.refused[11]), Form::number},
    {"refused.atmMode", AT(likeness.refused[12]), Form::number},
    {"refused.atmClpMap", AT(likeness.refused[13]), Form::number},
    {"refused.psnNetType", AT(likeness.refused[14]), Form::number},
    {"refused.atmType", AT(likeness.refused[15]), Form::number},
    {"version.#", AT(system.status.version.text[n]), Form::text, 0, 9},
};

struct Found {
    const Setting *setting;
    uint32_t number;
};

void print(char (&name)[32], const Setting &setting, uint32_t number)
{
    const std::string_view pattern{setting.name};
    const size_t sign = std::min(pattern.find('#'), pattern.size());
    const auto before = static_cast<int>(sign);
    if (sign == pattern.size())
        snprintf(name, sizeof name, "%.*s", before, setting.name);
    else
        snprintf(name, sizeof name, "%.*s%u", before, setting.name, number);
}

// The setting with an index, among all of them; null: there is none.
Found settingAt(unsigned index)
{
    for (const Setting &setting : SETTINGS) {
        const uint32_t count = setting.last - setting.first + 1;
        if (index < count)
            return {&setting, setting.first + index};
        index -= count;
    }
    return {};
}

Found find(const char *name)
{
    char known[32];
    for (unsigned i = 0;; ++i) {
        const Found found = settingAt(i);
        if (!found.setting)
            fail(BAD_VALUE, "there is no setting '%.40s'", name);
        else if (print(known, *found.setting, found.number); strcmp(known, name) != 0)
            continue;
        return found;
    }
}

bool refuse(const char *name, const char *value, const char *expected)
{
    fail(BAD_VALUE, "%s: expected %s, not '%.40s'", name, expected, value);
    return false;
}

bool parse(const char *name, const char *text, uint32_t most, uint32_t &value)
{
    char expected[32];
    snprintf(expected, sizeof expected, "a number up to %u", most);
    char *end;
    const unsigned long long number = strtoull(text, &end, 0);
    if (*text < '0' || *text > '9' || *end || number > most)
        return refuse(name, text, expected);
    value = static_cast<uint32_t>(number);
    return true;
}

// Writes the value, whose form is right.
bool write(Transaction &device, const Found &found, const char *name, const char *value)
{
    const Setting &setting = *found.setting;
    const Place bytes = setting.at(*device, found.number);
    uint32_t word = 0;
    switch (setting.form) {
    case Form::flags:
        word = strcmp(value, "on") == 0;
        if (!word && strcmp(value, "off") != 0)
            return refuse(name, value, "on or off");
        break;
    case Form::number:
        if (!parse(name, value, setting.most, word))
            return false;
        break;
    case Form::text:
        if (strlen(value) >= bytes.size()) {
            fail(BAD_VALUE, "%s: at most %zu characters", name, bytes.size() - 1);
            return false;
        }
        device.modify(bytes);
        strncpy(reinterpret_cast<char *>(bytes.data()), value, bytes.size());
        return true;
    }
    device.modify(bytes);
    for (size_t at = 0; at < bytes.size(); at += sizeof word)
        memcpy(bytes.data() + at, &word, sizeof word);
    return true;
}

} // namespace

int kv_sim_set(const char *name, const char *value)
{
    return control([=](Transaction &device) {
        const Found found = find(name);
        if (!found.setting || !write(device, found, name, value))
            return BAD_VALUE;
        if (found.setting->at(*device, found.number).data() ==
            bytesOf(device->system.temperature).data())
            device.modify(device->system.temperatureSet) = 1;
        const Place place = found.setting->at(*device, found.number);
        const Place likeness = bytesOf(device->likeness);
        if (place.data() >= likeness.data() && place.data() < likeness.data() + likeness.size())
            device.modify(device->likeness.told) = 1;
        return attend(device);
    });
}

int kv_sim_get(const char *name, char *value, unsigned size)
{
    return control([=](Transaction &device) {
        const Found found = find(name);
        if (!found.setting)
            return BAD_VALUE;
        const Place bytes = found.setting->at(*device, found.number);
        uint32_t word;
        memcpy(&word, bytes.data(), sizeof word);
        std::string_view text;
        char number[16];
        switch (found.setting->form) {
        case Form::flags: {
            const bool same =
                memcmp(bytes.data(), bytes.data() + sizeof word, bytes.size() - sizeof word) == 0;
            text = !same ? "some" : word ? "on" : "off";
            break;
        }
        case Form::number:
            text = {number, static_cast<size_t>(snprintf(number, sizeof number, "%u", word))};
            break;
        case Form::text: {
            const auto *own = reinterpret_cast<const char *>(bytes.data());
            text = {own, strnlen(own, bytes.size())};
            break;
        }
        }
        if (text.size() >= size)
            return fail(BAD_VALUE, "%s needs %zu bytes, not %u", name, text.size() + 1, size);
        text.copy(value, size);
        value[text.size()] = '\0';
        return KV_OK;
    });
}

const char *kv_sim_setting(unsigned index)
{
    static thread_local char name[32];
    const Found found = settingAt(index);
    if (!found.setting)
        return nullptr;
    print(name, *found.setting, found.number);
    return name;
}
