#include "meaning.h"

#include <algorithm>
#include <iterator>

namespace describe
{

namespace
{

constexpr std::string_view ANY = "any";
constexpr std::string_view STAYS = "kept, without effect";

constexpr Meaning MEANINGS[] = {
    {"vexoAdminStatus", "1", "up"},
    {"vexoAdminStatus", "2", "down"},
    {"vexoAdminStatus", "3", "in test"},
    {"vexoOperState", "1", "up"},
    {"vexoOperState", "2", "down"},
    {"vexoOperState", "3", "in test"},
    {"vexoOperState", "4", NEVER},
    {"vexoOperState", "5", NEVER},
    {"current", "41", "the temperature, until it is set"},
    {"vexoModuleState", "0", NEVER},
    {"vexoModuleState", "1", "down: system-state is on, and it has an alarm"},
    {"vexoModuleState", "2", "in test: system-state is on, and it has a loopback"},
    {"vexoModuleState", "3", "up"},
    {"vexoModuleState", "4", NEVER},
    {"vexoModuleState", "5", NEVER},
    {"vexoLpbk", "1", "no loopback"},
    {"vexoLpbk", "2", "a loopback, which puts a port that is up in test"},
    {"vexoLpbk", "3", "a loopback, which puts a port that is up in test"},
    {"vexoLpbk", "4", "a loopback, which puts a port that is up in test"},

    {"bits", "bit 10", "a loopback, if loopback-alarms is on"},
    {"bits", "bit 11", "the temperature has been set, to the first threshold or above"},
    {"bits", "bit 12", "the temperature has been set, to the second threshold or above"},
    {"bits", "bit 13", "the log has taken 512 records since it was cleared"},
    {"bits", "other bits", STAYS},
    {"alarmBits", "any bit", "an alarm: the object is down"},
    {"alarmBits", "bit 3", "of a pseudowire: its port isn't up, if port-alarms is on"},
    {"alarmBits", "bit 4", "of a pseudowire: another has its circuit, if circuit-alarms is on"},
    {"alarmBits", "bit 9", "of a group: fewer links are up than it needs, if link-alarms is on"},
    {"alarmBits", "bit 14", "of a port: it is up without a signal"},
    {"alarmBits", "bit 15", "of a port: a loopback, if loopback-alarms is on"},
    {"vexoAlarmMode", ANY, STAYS},

    {"vexoPmType", "1", "the running 900 seconds"},
    {"vexoPmType", "2", "the running 3600 seconds"},
    {"vexoPmType", "3", "the running 86400 seconds"},
    {"vexoPmType", "4", "all since it was ended by command"},

    {"vexoTdmMode", ANY, STAYS},
    {"vexoNetQuality", ANY, STAYS},
    {"vexoPdhFrameMode", ANY, STAYS},
    {"vexoPdhCode", ANY, STAYS},
    {"vexoPdhNiuMode", ANY, STAYS},
    {"vexoPdhSyncMode", ANY, STAYS},

    {"vexoPweServiceT1.circuit", "1 to 16", "the port of this number"},
    {"vexoPweServiceT2.circuit", "1 to 16", "the port of this number"},
    {"vexoPweServiceA.circuit", "1 to 16", "the port of this number"},
    {"vexoPwePsn.param1", ANY, STAYS},
    {"vexoPwePsn.param2", ANY, STAYS},
    {"vexoPwePsn.param3", ANY, STAYS},
    {"vexoPwePsn.param4", ANY, STAYS},
    {"vexoPwePsnType", "4", NEVER},
    {"vexoPwePsnType", "5", NEVER},
    {"vexoPweUdpMode", ANY, STAYS},
    {"vexoPweType", "1", "if no sizes are given, 256 of payload, 5000 of jitter buffer"},
    {"vexoPweType", "2", "if no sizes are given, 192 of payload, 3000 of jitter buffer"},
    {"vexoPweType", "3", "if no size is given, 48 of payload"},
    {"vexoPweType", "4", "if no size is given, 48 of payload"},
    {"vexoAtmMode", ANY, STAYS},
    {"vexoAtmType", ANY, STAYS},
    {"vexoAtmClpMode", ANY, STAYS},
    {"vexoPweAtmXcType", ANY, STAYS},

    {"vexoImaGroupState.words", "word 0", "1 down, 3 up"},
    {"vexoImaGroupState.words", "word 1", "how many of its links are up"},
    {"vexoImaLinkState.words", "word 0", "1 down, 3 up"},

    {"vexoUpgradeMode", ANY, STAYS},
    {"vexoUpgradeState", "1", "none was begun since the device was reset or shut down"},
    {"vexoUpgradeState", "2", "under way, for 5 seconds"},
    {"vexoUpgradeState", "3", "under way, for 5 seconds"},
    {"vexoUpgradeState", "4", "under way, for 5 seconds"},
    {"vexoUpgradeState", "5", "final: done"},
    {"vexoUpgradeState", "6", "final: failed"},
    {"vexoDebugState", "1", "no text has been set"},
    {"vexoDebugState", "2", "a text has been set"},
    {"vexoDebugState", "3", NEVER},
    {"vexoTpgmStatus.words", "word 0", "1 when it was set up"},
    {"vexoTpgmStatus.words", "words 1 to 3", "the parameters"},
    {"vexoTpgmStatus.words", "word 4", "seconds since it was set up or cleared"},
    {"vexoTpgmStatus.words", "words 5 and 6", "2048000 bits for each of them, low half first"},
};

} // namespace

std::span<const Meaning> meanings()
{
    return MEANINGS;
}

std::vector<Meaning> meaningsOf(std::string_view of)
{
    std::vector<Meaning> found;
    std::ranges::copy_if(MEANINGS, std::back_inserter(found),
                         [of](const Meaning &meaning) { return meaning.of == of; });
    return found;
}

std::string_view unitOf(std::string_view name)
{
    constexpr std::string_view TIMES[] = {"seconds", "microseconds", "milliseconds"};
    constexpr std::string_view OF_PLATFORM[] = {"cableLength", "length",           "payloadSize",
                                                "size",        "jitterBufferSize", "current"};
    if (std::ranges::find(TIMES, name) != std::end(TIMES))
        return name;
    return std::ranges::find(OF_PLATFORM, name) != std::end(OF_PLATFORM) ? "the platform's unit"
                                                                         : "";
}

} // namespace describe
