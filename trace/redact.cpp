// Stand-ins for addresses: numbered as they come, so that equal ones have equal ones, and two
// recordings of the same run the same ones.
#include "recorder.h"

#include <cstdio>

namespace trace
{

namespace
{

constexpr uint32_t STAND_INS = 4096;
std::atomic<uint64_t> macs[STAND_INS], ips[STAND_INS];

// The place of an address in its table, from 1.
uint32_t numberOf(std::atomic<uint64_t> (&table)[STAND_INS], uint64_t address)
{
    for (uint32_t i = 0; i < STAND_INS; ++i) {
        uint64_t known = 0;
        if (table[i].compare_exchange_strong(known, address) || known == address)
            return i + 1;
    }
    setFlag(MORE_ADDRESSES);
    return STAND_INS + 1;
}

// None, and all of them, tell nothing.
void redactMac(uint8_t *mac)
{
    uint64_t address = 0;
    memcpy(&address, mac, 6);
    if (address == 0 || address == 0xFFFFFFFFFFFF)
        return;
    const uint32_t number = numberOf(macs, address);
    const uint8_t instead[6] = {
        2, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    memcpy(mac, instead, sizeof instead);
}

uint32_t redactedIp(uint32_t address)
{
    return address == 0 || address == 0xFFFFFFFF ? address : 0x0A000000 + numberOf(ips, address);
}

bool isIp(const char *name)
{
    for (const char *known : {"address", "srcIp", "serverAddress"})
        if (strcmp(name, known) == 0)
            return true;
    return false;
}

int hexadecimal(char c)
{
    return c >= '0' && c <= '9'                 ? c - '0'
           : (c | 32) >= 'a' && (c | 32) <= 'f' ? (c | 32) - 'a' + 10
                                                : -1;
}

bool readMac(const char *text, const char *end, uint8_t *mac)
{
    if (end - text < 17)
        return false;
    for (int i = 0; i < 6; ++i, text += 3) {
        const int high = hexadecimal(text[0]), low = hexadecimal(text[1]);
        if (high < 0 || low < 0 || (i < 5 && text[2] != ':' && text[2] != '-'))
            return false;
        mac[i] = static_cast<uint8_t>(high * 16 + low);
    }
    return true;
}

// Its length; 0: there is none.
size_t readIp(const char *text, const char *end, uint32_t &address)
{
    const char *at = text;
    address = 0;
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && (at == end || *at++ != '.'))
            return 0;
        const char *const digits = at;
        uint32_t part = 0;
        while (at != end && at - digits < 3 && *at >= '0' && *at <= '9')
            part = part * 10 + static_cast<uint32_t>(*at++ - '0');
        if (at == digits || part > 255)
            return 0;
        address = address << 8 | part;
    }
    return static_cast<size_t>(at - text);
}

} // namespace

void redact(const char *name, const describe::Type *type, uint32_t count, void *value)
{
    if (!type)
        return;
    auto *at = static_cast<uint8_t *>(value);
    for (uint32_t i = 0; i < count; ++i, at += type->size) {
        if (type->kind == describe::Kind::record) {
            for (const describe::Field &field : type->fields)
                redact(field.name, field.type, field.count, at + field.offset);
        } else if (type->kind == describe::Kind::mac) {
            redactMac(at);
        } else if (type->kind == describe::Kind::word && type->size == 4 && isIp(name)) {
            uint32_t address;
            memcpy(&address, at, sizeof address);
            address = redactedIp(address);
            memcpy(at, &address, sizeof address);
        } else if (type->kind == describe::Kind::text && type->size > 0) {
            char text[2 * 256];
            const auto *const from = reinterpret_cast<const char *>(at);
            const size_t room = type->size < 256 ? type->size : 256;
            size_t length = strnlen(from, room);
            memcpy(text, from, length);
            length = redactText(text, length, room);
            memset(at, 0, type->size);
            memcpy(at, text, length);
        }
    }
}

size_t redactText(char *text, size_t length, size_t room)
{
    for (size_t i = 0; i < length; ++i) {
        uint8_t mac[6];
        uint32_t address;
        char instead[24];
        size_t taken = 0;
        int given = 0;
        if (i > 0 && hexadecimal(text[i - 1]) >= 0)
            continue; // within a word or number
        if (readMac(text + i, text + length, mac)) {
            redactMac(mac);
            taken = 17;
            given = snprintf(instead, sizeof instead, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0],
                             mac[1], mac[2], mac[3], mac[4], mac[5]);
        } else if ((taken = readIp(text + i, text + length, address)) != 0) {
            address = redactedIp(address);
            given = snprintf(instead, sizeof instead, "%u.%u.%u.%u", address >> 24,
                             address >> 16 & 255, address >> 8 & 255, address & 255);
        }
        if (taken == 0)
            continue;
        // What doesn't fit is cut.
        const size_t rest = length - i - taken;
        const auto put = static_cast<size_t>(given);
        memmove(text + i + put, text + i + taken, rest);
        memcpy(text + i, instead, put);
        length = i + put + rest < room ? i + put + rest : room;
        i += put - 1;
    }
    return length;
}

} // namespace trace
