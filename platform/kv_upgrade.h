// libkv_upgrade: software load of the device, as far as the library uses it.
#ifndef KV_UPGRADE_H
#define KV_UPGRADE_H

#include "kv_types.h"

struct upgradeRequest {
    UpgradeMode mode;
    uint32_t constant4;
    uint32_t constant8;
    uint32_t serverAddress; // host byte order
    char fileName[64];
    uint8_t platform80[64];
    uint32_t constant144;
};

struct upgradeStatus {
    uint8_t platform0[128];
    UpgradeState state;
    UpgradeMode mode;
    uint8_t platform136[140];
    char fileName[64];
    uint8_t platform340[8];
};

extern "C" {
kvRc upgrade_load(const upgradeRequest *request);
kvRc upgrade_status_get(uint32_t constant, upgradeStatus *status);
}

#endif
