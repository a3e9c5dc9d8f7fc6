// Enumerations of the platform libraries. Their members are the platform's; the library knows only
// the values of its tables.
#ifndef KV_TYPES_H
#define KV_TYPES_H

#include <stdint.h>

using kvRc = uint32_t;

constexpr kvRc KV_OK = 0;
constexpr kvRc KV_FAILURE = 1;
constexpr kvRc KV_NO_COUNTERS = 0x1000;      // what a PM report passes over silently
constexpr kvRc KV_NOT_PROVISIONED = 0x20000; // the addressed object does not exist

enum eqptMode : uint32_t {};
enum operState : uint32_t {};
enum adminStatus : uint32_t {};
enum pdhFrameMode : uint32_t {};
enum pdhCode : uint32_t {};
enum pdhNiuMode : uint32_t {};
enum pdhClockMode : uint32_t {};
enum lpbk : uint32_t {};
enum pmInterval : uint32_t {};
enum tagMode : uint32_t {};
enum pweIpUdpMode : uint32_t {};
enum pweType : uint32_t {
    PWE_TYPE_TDM_1 = 1,
    PWE_TYPE_TDM_2 = 2,
    PWE_TYPE_ATM_3 = 3,
    PWE_TYPE_ATM_4 = 4,
};
enum pweEncType : uint32_t {};
enum pweAtmXcType : uint32_t {};
enum alarmMode : uint32_t {};
enum atmMode : uint32_t {};
enum atmType : uint32_t {};
enum atmClpMap : uint32_t {};
enum psnNetType : uint32_t {};
enum UpgradeMode : uint32_t {};
enum UpgradeState : uint32_t {};
enum DebugState : uint32_t {};

enum objType : uint32_t {
    OBJ_SYSTEM = 0,
    OBJ_PDH = 1,
    OBJ_IMA_GROUP = 2,
    OBJ_PWE = 3,
    OBJ_IMA_LINK = 34,
};

// A 64-bit counter, low half first. Two words, since several records that hold counters are not a
// multiple of 8 bytes long.
struct kvCounter {
    uint32_t low;
    uint32_t high;
};

#endif
