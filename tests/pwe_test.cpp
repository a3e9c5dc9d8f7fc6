#include "device.h"

#include <array>
#include <optional>
#include <random>

#include <dlfcn.h>

namespace
{

// What the platform answers instead of the device, and what it was sent.
std::optional<pwConfig> stored;
std::optional<pwConfig> sent;

template <class Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The executable's functions come first: records that no device holds can be put under the library.
kvRc config_get_pw(pwConfig *out, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw)>("config_get_pw")(out, pwId);
    *out = *stored;
    return KV_OK;
}

kvRc config_get_pw_defaults(pwConfig *out, const pwDefaultsKey *key, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw_defaults)>("config_get_pw_defaults")(out, key, pwId);
    *out = *stored;
    return KV_OK;
}

kvRc config_add_pw(const pwConfig *in, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_add_pw)>("config_add_pw")(in, pwId);
    sent = *in;
    return KV_OK;
}

kvRc config_set_pw(const pwConfig *in, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_set_pw)>("config_set_pw")(in, pwId);
    sent = *in;
    return KV_OK;
}

kvRc config_get_pw_oper_state(operState *out, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw_oper_state)>("config_get_pw_oper_state")(out, pwId);
    *out = operState{3};
    return KV_OK;
}

namespace
{

// Records as bytes, by the offsets of the interface: what is expected shares nothing with the code.
template <class Record>
class Bytes
{
  public:
    explicit Bytes(const Record &record) { memcpy(bytes_.data(), &record, sizeof record); }
    Bytes() : bytes_{} {}

    uint32_t word(size_t offset) const
    {
        uint32_t value;
        memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }
    uint32_t half(size_t offset) const
    {
        return static_cast<uint32_t>(bytes_[offset] | bytes_[offset + 1] << 8);
    }
    uint32_t byte(size_t offset) const { return bytes_[offset]; }
    void word(size_t offset, uint32_t value) { memcpy(bytes_.data() + offset, &value, 4); }
    void half(size_t offset, uint32_t value) { memcpy(bytes_.data() + offset, &value, 2); }
    void byte(size_t offset, uint32_t value) { bytes_[offset] = static_cast<uint8_t>(value); }

    const uint8_t *at(size_t offset) const { return bytes_.data() + offset; }
    uint8_t *at(size_t offset) { return bytes_.data() + offset; }

    std::string differenceTo(const Record &record) const
    {
        const Bytes other{record};
        for (size_t i = 0; i < sizeof(Record); ++i)
            if (bytes_[i] != other.bytes_[i])
                return "at offset " + std::to_string(i) + ": " + std::to_string(other.bytes_[i]) +
                       " instead of " + std::to_string(bytes_[i]);
        return "";
    }

  private:
    std::array<uint8_t, sizeof(Record)> bytes_;
};

uint32_t mapped(uint32_t value, std::initializer_list<uint32_t> toFromOne, uint32_t other)
{
    return value >= 1 && value <= toFromOne.size() ? toFromOne.begin()[value - 1] : other;
}

uint32_t toEnc(uint32_t psn)
{
    return mapped(psn, {2, 3, 4, 1, 5}, 0);
}

uint32_t toPsn(uint32_t enc)
{
    return mapped(enc, {4, 1, 2, 3, 5}, 0);
}

const char *refusalOf(uint32_t psn)
{
    return psn == 4 ? "Not supported" : psn == 5 ? "Not implemented" : nullptr;
}

// What a set makes of the platform's record.
struct Overlay {
    Bytes<vexoPweParams> in;
    Bytes<pwConfig> out;

    void flaggedWord(size_t to, size_t from)
    {
        if (in.word(from + 4))
            out.word(to, in.word(from));
    }
    void flaggedByte(size_t to, size_t from)
    {
        if (in.word(from + 4))
            out.byte(to, in.word(from));
    }
    void flaggedHalf(size_t to, size_t from)
    {
        if (in.word(from + 4))
            out.half(to, in.word(from));
    }
    void nonZero(size_t to, size_t from)
    {
        if (in.word(from))
            out.word(to, in.word(from));
    }
    void twoState(size_t to, size_t from, uint32_t ofOne)
    {
        if (in.word(from) == 1 || in.word(from) == 2)
            out.word(to, in.word(from) == 1 ? ofOne : 1 - ofOne);
    }

    void vlan(size_t at)
    {
        const uint32_t mode = in.word(at);
        out.word(56, mapped(mode, {1, 2, 3, 4}, 0));
        if (mode != 1) {
            flaggedHalf(66, at + 20);
            flaggedByte(64, at + 28);
        }
        if (mode == 3) {
            flaggedHalf(62, at + 4);
            flaggedByte(60, at + 12);
        }
    }
    void psn(size_t at)
    {
        const uint32_t type = in.word(at);
        out.word(16, toEnc(type));
        if (type == 1) {
            flaggedWord(32, at + 4);
            flaggedWord(36, at + 12);
            flaggedByte(40, at + 20);
            flaggedByte(41, at + 28);
        } else if (type == 2) {
            flaggedWord(20, at + 4);
            flaggedWord(24, at + 12);
        } else if (type == 3) {
            out.word(20, mapped(in.word(at + 28), {1, 2, 3}, 0));
            flaggedWord(24, at + 4);
            flaggedWord(28, at + 12);
            flaggedWord(32, at + 20);
        }
    }
    void rtp(size_t at)
    {
        out.word(68, in.word(at) == 2);
        flaggedByte(76, at + 4);
        flaggedWord(72, at + 12);
    }
    void service(size_t at, uint32_t type)
    {
        if (type == 1 || type == 2) {
            const size_t shift = type == 2 ? 8 : 0;
            out.word(12, in.word(at));
            if (type == 2) {
                flaggedWord(88, at + 4);
                twoState(92, at + 20, 1);
            }
            nonZero(80, at + 4 + shift);
            nonZero(84, at + 8 + shift);
            rtp(type == 2 ? at + 24 : at + 12);
        } else if (type == 3 || type == 4) {
            out.word(12, in.word(at));
            nonZero(84, at + 4);
            nonZero(88, at + 8);
            twoState(92, at + 12, 0);
            out.word(96, in.word(at + 16) == 1 ? 1 : 2);
            out.word(100, in.word(at + 20) == 2 ? 2 : 1);
            twoState(104, at + 24, 0);
            twoState(108, at + 28, 0);
            out.word(112, mapped(in.word(at + 32), {1, 2, 3, 4}, 1));
            out.word(116, in.word(at + 36));
            out.word(120, in.word(at + 40));
        }
    }
    void params(uint32_t pwId)
    {
        out.word(4, mapped(in.word(8), {2, 1, 3}, 0));
        memcpy(out.at(44), in.at(12), 6);
        out.word(8, pwId);
        vlan(20);
        psn(56);
        out.word(0, mapped(in.word(0), {1, 2, 3, 4, 6}, 0));
        service(120, in.word(0));
    }
};

// What a get makes of the platform's record.
struct Extraction {
    Bytes<pwConfig> in;
    Bytes<vexoPweParamsInfo> out;

    void flagged(size_t to, uint32_t value)
    {
        out.word(to, value);
        out.word(to + 4, 1);
    }
    void vlan(size_t at)
    {
        const uint32_t mode = mapped(in.word(56), {1, 2, 3, 4}, 0);
        out.word(at, mode);
        if (mode != 1) {
            flagged(at + 20, in.half(66));
            flagged(at + 28, in.byte(64));
        }
        if (mode == 3) {
            flagged(at + 4, in.half(62));
            flagged(at + 12, in.byte(60));
        }
    }
    bool psn(size_t at)
    {
        const uint32_t type = toPsn(in.word(16));
        out.word(at, type);
        if (type == 1) {
            flagged(at + 4, in.word(32));
            flagged(at + 12, in.word(36));
            flagged(at + 20, in.byte(40));
            flagged(at + 28, in.byte(41));
        } else if (type == 2) {
            flagged(at + 4, in.word(20));
            flagged(at + 12, in.word(24));
        } else if (type == 3) {
            out.word(at + 28, mapped(in.word(20), {1, 2, 3}, 0));
            flagged(at + 4, in.word(24));
            flagged(at + 12, in.word(28));
            flagged(at + 20, in.word(32));
        }
        return !refusalOf(type);
    }
    void rtp(size_t at)
    {
        const bool on = in.word(68) == 1;
        out.word(at, on ? 2 : 1);
        if (on) {
            flagged(at + 4, in.byte(76));
            flagged(at + 12, in.word(72));
        }
    }
    uint32_t twoState(size_t from, uint32_t ofSet) const
    {
        return in.word(from) == 1 ? ofSet : 3 - ofSet;
    }
    void service(size_t at, uint32_t type)
    {
        if (type == 1) {
            out.word(at, in.word(12));
            out.word(at + 4, in.word(80));
            out.word(at + 8, in.word(84));
            rtp(at + 12);
        } else if (type == 2) {
            out.word(at, in.word(12));
            flagged(at + 4, in.word(88));
            out.word(at + 12, in.word(80));
            out.word(at + 16, in.word(84));
            out.word(at + 20, twoState(92, 1));
            rtp(at + 24);
        } else if (type == 3 || type == 4) {
            out.word(at, in.word(12));
            out.word(at + 4, in.word(84));
            out.word(at + 8, in.word(88));
            out.word(at + 12, twoState(92, 2));
            out.word(at + 16, mapped(in.word(96), {1, 2}, 0));
            out.word(at + 20, mapped(in.word(100), {1, 2}, 0));
            out.word(at + 24, twoState(104, 2));
            out.word(at + 28, twoState(108, 2));
            out.word(at + 32, mapped(in.word(112), {1, 2, 3, 4}, 0));
            out.word(at + 36, in.word(116));
            out.word(at + 40, in.word(120));
        }
    }
    void params()
    {
        const uint32_t type = mapped(in.word(0), {1, 2, 3, 4, 0, 5}, 0);
        out.word(0, type);
        out.word(4, 2);
        out.word(8, mapped(in.word(4), {2, 1, 3}, 0));
        out.word(12, 1); // the platform's 3
        memcpy(out.at(16), in.at(50), 6);
        memcpy(out.at(22), in.at(44), 6);
        vlan(28);
        if (psn(64))
            service(128, type);
    }
};

class Records : public Device
{
  protected:
    void TearDown() override { stored.reset(); }

    template <class Record>
    void scramble(Record &record)
    {
        auto *bytes = reinterpret_cast<uint8_t *>(&record);
        for (size_t i = 0; i < sizeof record; ++i)
            bytes[i] = static_cast<uint8_t>(random());
    }

    uint32_t upTo(uint32_t last) { return static_cast<uint32_t>(random() % (last + 1)); }

    // Random, but with values that matter often enough where they do.
    vexoPweParams randomParams()
    {
        vexoPweParams params;
        scramble(params);
        for (uint32_t *word = reinterpret_cast<uint32_t *>(&params.vlan);
             word < reinterpret_cast<uint32_t *>(&params + 1); ++word)
            if (upTo(2) == 0)
                *word = upTo(3);
        params.adminStatus = vexoAdminStatus{upTo(4)};
        return params;
    }

    pwConfig randomConfig()
    {
        pwConfig config;
        scramble(config);
        for (uint32_t *word : {&config.rtpEnable, &config.serviceFlag, &config.atmFlag1,
                               &config.atmFlag2, &config.aisForced})
            *word = upTo(2);
        config.adminStatus = adminStatus{upTo(4)};
        config.atmMode = atmMode{upTo(3)};
        config.atmType = atmType{upTo(3)};
        config.atmClpMap = atmClpMap{upTo(5)};
        if (upTo(1))
            config.enc.enc4.udpMode = pweIpUdpMode{upTo(4)};
        return config;
    }

    void expectRefusal(uint32_t psn)
    {
        const char *refusal = refusalOf(psn);
        EXPECT_EQ(result.rc, refusal ? VEXO_RC_GENERAL : VEXO_RC_OK);
        EXPECT_STREQ(result.message, refusal ? refusal : "");
        EXPECT_EQ(result.message[strlen(result.message) + 1], 0x5A) << "written behind the text";
    }

    std::minstd_rand random{20210611};
};

TEST_F(Records, wholeAreSetFieldByField)
{
    constexpr uint32_t PW = 77;
    unsigned combinations = 0;
    for (uint32_t type = 0; type <= 6; ++type)
        for (uint32_t psn = 0; psn <= 6; ++psn)
            for (uint32_t mode = 0; mode <= 5; ++mode)
                for (uint32_t action : {0u, 2u, 3u})
                    for (int round = 0; round < 20; ++round) {
                        vexoPweParams params = randomParams();
                        params.pweType = vexoPweType{type};
                        params.psn.psnType = vexoPwePsnType{psn};
                        params.vlan.mode = vexoVlanMode{mode};
                        params.pweAction = vexoPweAction{action};
                        stored = randomConfig();
                        sent.reset();
                        Overlay expected{Bytes{params}, Bytes{*stored}};
                        expected.params(PW);
                        result = unwritten();
                        vexo_cmi_pwe_params_set(&params, PW, &result);
                        expectRefusal(psn);
                        ASSERT_EQ(sent.has_value(), !refusalOf(psn));
                        if (sent) {
                            ASSERT_EQ(expected.out.differenceTo(*sent), "")
                                << "type " << type << ", PSN " << psn << ", VLAN " << mode;
                        }
                        ++combinations;
                    }
    EXPECT_EQ(combinations, 7u * 7 * 6 * 3 * 20);
}

TEST_F(Records, wholeAreReadFieldByField)
{
    for (uint32_t type = 0; type <= 7; ++type)
        for (uint32_t enc = 0; enc <= 6; ++enc)
            for (uint32_t tag = 0; tag <= 5; ++tag)
                for (int round = 0; round < 20; ++round) {
                    stored = randomConfig();
                    stored->pweType = pweType{type};
                    stored->encType = pweEncType{enc};
                    stored->tagMode = tagMode{tag};
                    Extraction expected{Bytes{*stored}, {}};
                    expected.params();
                    vexoPweParamsInfo info;
                    memset(&info, 0x5A, sizeof info);
                    result = unwritten();
                    vexo_cmi_pwe_params_get(&info, 1, &result);
                    expectRefusal(toPsn(enc));
                    ASSERT_EQ(expected.out.differenceTo(info), "")
                        << "type " << type << ", encapsulation " << enc << ", tag mode " << tag;
                }
}

TEST_F(Records, singleAttributesAreSetAndReadAsInTheWhole)
{
    for (int round = 0; round < 3000; ++round) {
        vexoPweParams params = randomParams();
        params.vlan.mode = vexoVlanMode{upTo(5)};
        params.psn.psnType = vexoPwePsnType{upTo(6)};
        params.service.t1.rtp.mode = vexoPweRtpMode{upTo(3)};
        stored = randomConfig();
        stored->pweType = pweType{upTo(6)};
        stored->encType = pweEncType{upTo(6)};
        stored->tagMode = tagMode{upTo(5)};
        const bool tdm = stored->pweType == 1 || stored->pweType == 2;
        const auto overlay = [&](void (Overlay::*part)(size_t), size_t at) {
            Overlay expected{Bytes{params}, Bytes{*stored}};
            (expected.*part)(at);
            return expected.out;
        };

        vexo_cmi_pwe_vlan_set(&params.vlan, 1, &result);
        ASSERT_EQ(overlay(&Overlay::vlan, 20).differenceTo(*sent), "");

        sent.reset();
        result = unwritten();
        vexo_cmi_pwe_psn_set(&params.psn, 1, &result);
        expectRefusal(params.psn.psnType);
        if (sent) {
            ASSERT_EQ(overlay(&Overlay::psn, 56).differenceTo(*sent), "");
        }

        sent.reset();
        const vexoPweRtp &rtp = params.service.t1.rtp;
        vexo_cmi_pwe_rtp_set(&rtp, 1, &result);
        ASSERT_EQ(sent.has_value(), tdm);
        EXPECT_STREQ(result.message, tdm ? "" : "Bad PWE type");
        if (sent) {
            Bytes<pwConfig> expected = overlay(&Overlay::rtp, 132);
            if (rtp.mode != 1 && rtp.mode != 2)
                expected.word(68, stored->rtpEnable);
            ASSERT_EQ(expected.differenceTo(*sent), "");
        }

        sent.reset();
        const uint32_t size = upTo(1) ? upTo(3000) : 0;
        vexo_cmi_pwe_payload_set(size, 1, &result);
        ASSERT_EQ(sent.has_value(), tdm);
        if (sent) {
            Bytes<pwConfig> expected{*stored};
            if (size)
                expected.word(84, size);
            ASSERT_EQ(expected.differenceTo(*sent), "");
        }

        vexo_cmi_pwe_dst_mac_set(params.dstMac, 1, &result);
        Bytes<pwConfig> withMac{*stored};
        memcpy(withMac.at(44), params.dstMac, 6);
        ASSERT_EQ(withMac.differenceTo(*sent), "");

        // Read the parts of the whole one by one.
        Extraction whole{Bytes{*stored}, {}};
        whole.vlan(28);
        whole.psn(64);
        if (tdm)
            whole.rtp(128);
        vexoPweVlan vlan;
        vexoPwePsn psn;
        vexoPweRtp rtpRead;
        memset(&vlan, 0x5A, sizeof vlan);
        memset(&psn, 0x5A, sizeof psn);
        memset(&rtpRead, 0x5A, sizeof rtpRead);
        vexo_cmi_pwe_vlan_get(&vlan, 1, &result);
        result = unwritten();
        vexo_cmi_pwe_psn_get(&psn, 1, &result);
        expectRefusal(toPsn(stored->encType));
        vexo_cmi_pwe_rtp_get(&rtpRead, 1, &result);
        EXPECT_STREQ(result.message, tdm ? "" : "Bad PWE type");
        ASSERT_EQ(memcmp(&vlan, whole.out.at(28), sizeof vlan), 0);
        ASSERT_EQ(memcmp(&psn, whole.out.at(64), sizeof psn), 0);
        ASSERT_EQ(memcmp(&rtpRead, whole.out.at(128), sizeof rtpRead), 0);

        uint32_t jitter = 0x5A5A5A5A, payload = 0x5A5A5A5A, ais = 0x5A5A5A5A;
        vexo_cmi_pwe_pdv_get(&jitter, 1, &result);
        vexo_cmi_pwe_payload_get(&payload, 1, &result);
        EXPECT_EQ(result.rc, tdm ? VEXO_RC_OK : VEXO_RC_GENERAL);
        vexo_cmi_pwe_atm_force_ais_get(&ais, 1, &result);
        EXPECT_EQ(jitter, tdm ? stored->jitterBufferSize : 0x5A5A5A5A);
        EXPECT_EQ(payload, tdm ? stored->payloadSize : 0x5A5A5A5A);
        EXPECT_EQ(ais, stored->aisForced != 0);
    }
}

TEST_F(Records, crossConnectsAreClampedToTheRecord)
{
    for (uint32_t count : {0u, 1u, 19u, 20u, 21u, 0xFFFFFFFFu}) {
        stored = randomConfig();
        stored->pweType = PWE_TYPE_ATM_4;
        stored->atmXcCount = count;
        for (pwAtmXc &xc : stored->atmXc)
            xc.xcType = pweAtmXcType{upTo(4)};
        vexoPweAtmXc xc[VEXO_PWE_ATM_XC_MAX + 1];
        memset(xc, 0x5A, sizeof xc);
        uint32_t used = 99;
        vexo_cmi_pwe_atmop_xc_get(xc, &used, 1, &result);
        EXPECT_OK(result);
        EXPECT_EQ(used, std::min(count, 20u));
        for (uint32_t i = 0; i <= VEXO_PWE_ATM_XC_MAX; ++i) {
            const pwAtmXc &entry = stored->atmXc[i < 20 ? i : 0];
            const vexoPweAtmXc expected{vexoPweAtmXcType{mapped(entry.xcType, {3, 1, 2}, 0)},
                                        entry.xcId1, entry.xcId2, entry.xcId3, entry.xcId4};
            if (i < used)
                EXPECT_EQ(memcmp(&xc[i], &expected, sizeof expected), 0) << i;
            else
                EXPECT_EQ(xc[i].xcType, 0x5A5A5A5Au) << i;
        }
    }
}

using Pwe = Device;

TEST_F(Pwe, aDeleteReadsNothingElse)
{
    vexoPweParams params;
    memset(&params, 0xFF, sizeof params);
    params.pweAction = VEXO_PWE_ACTION_DELETE;
    mark();
    vexo_cmi_pwe_params_set(&params, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "pseudowire 9 is not provisioned");
    EXPECT_EQ(calls(), Names{"config_del_pw"});
}

TEST_F(Pwe, aMissingOneIsReadAsMissingAndNotAsAFailure)
{
    vexoPweParamsInfo info;
    memset(&info, 0x5A, sizeof info);
    result = unwritten();
    vexo_cmi_pwe_params_get(&info, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_OK);
    EXPECT_EQ(result.message[0], '\0');
    vexoPweParamsInfo expected{};
    expected.pweAction = vexoPweAction{1};
    EXPECT_EQ(memcmp(&info, &expected, sizeof info), 0);
    vexoAdminStatus status;
    vexo_cmi_pwe_admin_get(&status, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
}

TEST_F(Pwe, anUnreadableStateLeavesTheHeaderFilled)
{
    createPwe(VEXO_PWE_TYPE_TDM_2, 5);
    failing("config_get_pw_oper_state", 1024);
    vexoPweParamsInfo info;
    memset(&info, 0x5A, sizeof info);
    vexo_cmi_pwe_params_get(&info, 5, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_64);
    vexoPweParamsInfo expected{};
    expected.pweType = VEXO_PWE_TYPE_TDM_2;
    expected.pweAction = VEXO_PWE_ACTION_CREATE;
    expected.adminStatus = VEXO_ADMIN_STATUS_1;
    EXPECT_EQ(memcmp(&info, &expected, sizeof info), 0);
}

TEST_F(Pwe, livesFromTheDefaultsThroughAModifyToADelete)
{
    vexoPweParams params = newPwe(VEXO_PWE_TYPE_TDM_1);
    params.service.t1.circuit = 3;
    mark();
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    EXPECT_EQ(calls(), (Names{"config_get_pw_defaults", "config_add_pw"}));
    const auto key = given<pwDefaultsKey>("config_get_pw_defaults");
    EXPECT_EQ(key.pweType, 1u);
    EXPECT_EQ(key.encType, 3u);
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_STREQ(result.message, "pseudowire 1024 is provisioned already");
    vexo_cmi_pwe_params_set(&params, 1025, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_4);

    params.pweAction = VEXO_PWE_ACTION_MODIFY;
    params.service.t1.payloadSize = 128;
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    vexoPweParamsInfo info;
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.service.t1.payloadSize, 128u);
    EXPECT_EQ(info.service.t1.jitterBufferSize, 5000u) << "the default";
    EXPECT_EQ(info.operState, VEXO_OPER_STATE_1);
    ASSERT_EQ(kv_sim_alarm_set(KV_SIM_PW, 1024, 4), 0);
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.operState, VEXO_OPER_STATE_2) << "an alarm takes it down";

    params.pweAction = VEXO_PWE_ACTION_DELETE;
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.pweAction, VEXO_PWE_ACTION_DELETE);
}

TEST_F(Pwe, crossConnectsAreAddedListedAndRefused)
{
    createPwe(VEXO_PWE_TYPE_ATM_3, 1);
    createPwe(VEXO_PWE_TYPE_TDM_1, 2);
    vexoPweAtmXc xc{VEXO_PWE_ATM_XC_TYPE_2, 0x10001, 2, 3, 4};
    mark();
    vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
    EXPECT_OK(result);
    const auto record = given<pwAtmXc>("config_add_pw_atm_xc");
    EXPECT_EQ(record.xcId1, 1u);
    EXPECT_EQ(record.xcType, 3u);

    struct {
        uint32_t type, pwId;
        const char *text;
    } const refusals[] = {
        {2, 1, "pseudowire 1 has this cross-connect already"},
        {9, 1, "cross-connect type 0 is not one of 1 to 3"},
        {2, 2, "pseudowire 2 is not ATM"},
        {2, 3, "pseudowire 3 is not provisioned"},
    };
    for (const auto &row : refusals) {
        xc.xcType = vexoPweAtmXcType{row.type};
        vexo_cmi_pwe_atmop_xc_set(&xc, row.pwId, &result);
        EXPECT_STREQ(result.message, row.text);
    }
    xc.xcType = VEXO_PWE_ATM_XC_TYPE_2;
    for (uint32_t id = 2; id <= 20; ++id) {
        xc.xcId1 = id;
        vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
        ASSERT_OK(result);
    }
    xc.xcId1 = 21;
    vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
    EXPECT_STREQ(result.message, "pseudowire 1 has 20 cross-connects, no more can be");
    xc.xcId1 = 5;
    vexo_cmi_pwe_atmop_xc_delete(&xc, 1, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_atmop_xc_delete(&xc, 1, &result);
    EXPECT_STREQ(result.message, "pseudowire 1 has no such cross-connect");

    vexoPweAtmXc list[VEXO_PWE_ATM_XC_MAX];
    uint32_t count;
    vexo_cmi_pwe_atmop_xc_get(list, &count, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(count, 19u);
    EXPECT_EQ(list[3].xcId1, 4u);
    EXPECT_EQ(list[4].xcId1, 6u);
    EXPECT_EQ(list[4].xcType, VEXO_PWE_ATM_XC_TYPE_2);
    count = 77;
    vexo_cmi_pwe_atmop_xc_get(list, &count, 2, &result);
    EXPECT_STREQ(result.message, "Bad PWE type 'tdm-1'");
    EXPECT_EQ(count, 77u);
}

TEST_F(Pwe, pmCountersComeInTheKindThatThePlatformHas)
{
    createPwe(VEXO_PWE_TYPE_TDM_2, 1);
    createPwe(VEXO_PWE_TYPE_ATM_4, 2);
    // Word 0 is the kind; counters follow, and the flag behind them.
    for (uint32_t pwId : {1u, 2u})
        for (uint32_t word = 1; word <= 14; ++word)
            ASSERT_EQ(kv_sim_pm_set(KV_SIM_PW, pwId, 4, word, word == 14 || word == 5 ? 1 : word),
                      0);
    vexoPwePm pm;
    memset(&pm, 0x5A, sizeof pm);
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(pm.pmType, VEXO_PM_TYPE_4);
    EXPECT_EQ(pm.pweType, VEXO_PWE_TYPE_TDM_2);
    EXPECT_EQ(pm.body.generic.counters[12], 13u);
    EXPECT_EQ(pm.body.generic.valid, 1u);
    memset(&pm, 0x5A, sizeof pm);
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 2, &result);
    EXPECT_EQ(pm.body.atm.counters[3], 4u);
    EXPECT_EQ(pm.body.atm.valid, 1u);
    EXPECT_EQ(pm.body.generic.counters[5], 0x5A5A5A5Au) << "written behind the ATM counters";

    // The kind decides, not the type.
    ASSERT_EQ(kv_sim_pm_set(KV_SIM_PW, 2, 4, 0, 0), 0);
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 2, &result);
    EXPECT_EQ(pm.pweType, VEXO_PWE_TYPE_ATM_4);
    EXPECT_EQ(pm.body.generic.counters[12], 13u);
    ASSERT_EQ(kv_sim_pm_set(KV_SIM_PW, 2, 4, 14, 2), 0);
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 2, &result);
    EXPECT_EQ(pm.body.generic.valid, 0u);
    ASSERT_EQ(kv_sim_pm_set(KV_SIM_PW, 2, 4, 0, 2), 0);
    memset(&pm, 0x5A, sizeof pm);
    result = unwritten();
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 2, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_EQ(std::string(result.message, sizeof result.message),
              "Bad PWE type" + std::string(116, '\0'));
    EXPECT_EQ(pm.pweType, VEXO_PWE_TYPE_ATM_4);
    EXPECT_EQ(pm.body.generic.counters[0], 0x5A5A5A5Au);

    // A clear covers the intervals 1 to 3 and not 4.
    vexo_cmi_pwe_pm_clear(1, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 1, &result);
    EXPECT_EQ(pm.body.generic.counters[12], 13u);
}

TEST_F(Pwe, omCountersDependOnTheTypeAndAreReadBeforeTheyAreCleared)
{
    for (uint32_t type = 1; type <= 5; ++type)
        createPwe(vexoPweType{type}, type);
    for (uint32_t pwId = 1; pwId <= 5; ++pwId)
        for (uint32_t counter = 0; counter < 45; ++counter)
            ASSERT_EQ(kv_sim_om_set(KV_SIM_PW, pwId, counter, (7ULL << 32) + 100 + counter), 0);
    for (uint32_t pwId = 1; pwId <= 5; ++pwId) {
        SCOPED_TRACE(pwId);
        vexoPweOm om;
        memset(&om, 0x5A, sizeof om);
        vexo_cmi_pwe_om_get(&om, 1, pwId, &result);
        EXPECT_OK(result);
        EXPECT_EQ(om.pweType, pwId);
        Bytes<vexoPweOm> expected;
        memset(expected.at(0), 0x5A, sizeof om);
        expected.word(0, pwId);
        if (pwId <= 2) {
            expected.word(4, 102);
            expected.word(8, 101);
        } else if (pwId <= 4) {
            for (uint32_t i = 0; i < 4; ++i)
                expected.word(4 + 4 * i, 101 + i);
            for (uint32_t i = 0; i < 20; ++i) {
                expected.word(20 + 16 * i, 0);
                expected.word(24 + 16 * i, 0);
                expected.word(28 + 16 * i, 105 + 2 * i);
                expected.word(32 + 16 * i, 106 + 2 * i);
            }
        }
        EXPECT_EQ(expected.differenceTo(om), "");
        vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
        if (pwId <= 4) {
            EXPECT_EQ(om.counters[0], 0u) << "not cleared";
        }
    }
}

TEST_F(Pwe, directSettersPassWhatTheyAreGiven)
{
    createPwe(VEXO_PWE_TYPE_ATM_3, 1);
    mark();
    vexo_cmi_pwe_atm_force_ais_set(7, 1, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_pdv_set(1234, 1, &result);
    EXPECT_STREQ(result.message, "pseudowire 1 has no jitter buffer");
    vexo_cmi_pwe_alarms_set(0xFFFFFFFF, &result);
    EXPECT_OK(result);
    const auto made = entries();
    ASSERT_EQ(made.size(), 3u);
    EXPECT_EQ(made[0].args[1], 1u);
    EXPECT_EQ(made[1].args[1], 1234u);
    EXPECT_EQ(made[2].args[0], 3u);
    EXPECT_EQ(made[2].args[1], 0x1Fu);
    EXPECT_EQ(made[2].args[2], 0xFFFFFFFFu);
    uint32_t value = 0;
    vexo_cmi_pwe_atm_force_ais_get(&value, 1, &result);
    EXPECT_EQ(value, 1u);
    vexo_cmi_pwe_alarms_get(&value, 1, &result);
    EXPECT_EQ(value, 0x1Fu);
}

} // namespace
