// The simulated device: each test's devices belong to processes of its own, so the test itself
// never uses one.
#include <kv_alarm.h>
#include <kv_common.h>
#include <kv_config.h>
#include <kv_forker.h>
#include <kv_pmom.h>
#include <kv_sim.h>
#include <kv_upgrade.h>
#include <vexo_cmi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::this_thread::sleep_for;

constexpr uint64_t SECOND = 1000000;

// A process that runs a body of expectations. An empty path: with a device of its own.
class Process
{
  public:
    template <class Body>
    Process(const std::string &path, Body body) : id_{fork()}
    {
        if (id_ != 0)
            return;
        alarm(60);
        setenv("KV_SIM_DEVICE", path.c_str(), 1);
        body();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    Process(const Process &) = delete;
    ~Process() { kill(); }

    int end()
    {
        int status = 0;
        waitpid(std::exchange(id_, 0), &status, 0);
        return status;
    }
    void kill()
    {
        if (id_ > 0) {
            ::kill(id_, SIGKILL);
            end();
        }
    }

  private:
    pid_t id_;
};

template <class Body>
void run(const std::string &path, Body body)
{
    EXPECT_EQ(Process(path, body).end(), 0);
}

// A word from one process to another.
class Signal
{
  public:
    Signal() { EXPECT_EQ(pipe(ends_), 0); }
    Signal(const Signal &) = delete;
    ~Signal()
    {
        close(ends_[0]);
        close(ends_[1]);
    }

    bool has(int descriptor) const { return descriptor == ends_[0] || descriptor == ends_[1]; }

    void send(uint64_t word = 0)
    {
        EXPECT_EQ(::write(ends_[1], &word, sizeof word), ssize_t{sizeof word});
    }
    uint64_t wait()
    {
        uint64_t word = 0;
        EXPECT_EQ(read(ends_[0], &word, sizeof word), ssize_t{sizeof word});
        return word;
    }

  private:
    int ends_[2];
};

template <class Condition>
bool soon(Condition condition)
{
    for (int i = 0; i < 10000 && !condition(); ++i)
        sleep_for(milliseconds{1});
    return condition();
}

class SimulatedDevice : public testing::Test
{
  protected:
    SimulatedDevice()
    {
        char name[] = "/tmp/kv_sim_test.XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/device";
    }
    ~SimulatedDevice() override { std::filesystem::remove_all(folder); }

    std::string folder;
    std::string path;
};

std::string contents(const std::string &path)
{
    std::ostringstream bytes;
    bytes << std::ifstream{path, std::ios::binary}.rdbuf();
    return bytes.str();
}

void write(const std::string &path, const std::string &bytes)
{
    std::ofstream{path, std::ios::binary} << bytes;
}

std::string randomBytes(size_t size, unsigned seed)
{
    std::minstd_rand random{seed};
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() >> 8); });
    return bytes;
}

kvSimFault faultOf(const char *function, kvSimEffect effect, uint32_t value, uint32_t times = 0)
{
    kvSimFault fault{};
    snprintf(fault.function, sizeof fault.function, "%s", function);
    fault.anyObject = 1;
    fault.times = times;
    fault.effect = effect;
    fault.value = value;
    return fault;
}

// Calls every function that reports a code, and gives what it reported.
std::map<std::string, kvRc> callEverything(uint32_t number)
{
    std::map<std::string, kvRc> codes;
    sysParams params{};
    sysStatus status{};
    swVersion version{};
    pweIf interface {
    };
    sysLinkStatus link{};
    peerServer server{};
    debugInfo debug{};
    sysLpbk loopback{};
    tpgmSetup setup{};
    tpgmStatus tpgm{};
    pdhParams port{};
    pdhLpbk portLoopback{};
    pwConfig pw{};
    pwAtmXc xc{};
    pwProvList list{};
    imaParams group{};
    uint32_t word = 0;
    eqptMode mode{};
    adminStatus admin{};
    operState oper{};
    alarmMode report{};
    pdhPmStat pdhPm{};
    pwPmStats pwPm{};
    pwOmStats pwOm{};
    imaGroupPmStat groupPm{};
    imaLinkPmStat linkPm{};
    imaGroupOmStat groupOm{};
    imaLinkOmStat linkOm{};
    sysOmStat sysOm{};
    upgradeRequest request{};
    upgradeStatus upgrade{};
    const pwDefaultsKey key{PWE_TYPE_ATM_3, pweEncType{2}};
#define CALL(name, ...) codes[#name] = name(__VA_ARGS__)
    CALL(config_get_pw_defaults, &pw, &key, number);
    CALL(config_add_pw, &pw, number);
    CALL(config_get_pw, &pw, number);
    CALL(config_add_pw_atm_xc, &xc, number);
    xc.xcType = pweAtmXcType{1};
    for (uint16_t i = 0; i <= PW_ATM_XC_MAX; ++i) {
        xc.xcId1 = i;
        CALL(config_add_pw_atm_xc, &xc, number);
    }
    CALL(pmom_pw_om_stat_get, number, &pwOm);
    CALL(config_del_pw_atm_xc, &xc, number);
    if (pw.atmXcCount > 0)
        CALL(config_del_pw_atm_xc, &pw.atmXc[0], number);
    CALL(config_set_pw, &pw, number);
    CALL(config_get_pw_oper_state, &oper, number);
    CALL(config_set_pw_admin, adminStatus{2}, number);
    CALL(config_get_pw_admin, &admin, number);
    CALL(config_set_pw_jitter_size, 5, number);
    CALL(config_set_pw_ais, 1, number);
    CALL(config_get_pw_all_prov, &list);
    CALL(pmom_pw_om_stat_clear, number);
    CALL(config_del_pw, number);
    CALL(config_add_ima, &group, number);
    for (uint32_t l = 1; l <= IMA_LINK_MAX + 1; ++l)
        CALL(config_add_ima_link, l, number);
    CALL(config_get_ima_params, &group, number);
    CALL(config_set_ima_params, &group, number);
    CALL(config_del_ima_link, 3, number);
    CALL(pmom_ima_group_om_stat_get, number, &groupOm);
    CALL(pmom_ima_group_om_stat_clear, number);
    CALL(pmom_ima_link_om_stat_get, number, &linkOm);
    CALL(pmom_ima_link_om_stat_clear, number);
    for (uint32_t i = 1; i <= KV_SIM_INTERVALS; ++i) {
        for (uint32_t which : {0U, 1U}) {
            CALL(pmom_pdh_pm_stat_get, number, pmInterval{i}, which, &pdhPm);
            CALL(pmom_pw_pm_stat_get, number, pmInterval{i}, which, &pwPm);
            CALL(pmom_ima_group_pm_stat_get, number, pmInterval{i}, which, &groupPm);
            CALL(pmom_ima_link_pm_stat_get, number, pmInterval{i}, which, &linkPm);
        }
        CALL(pmom_pdh_pm_stat_clear, number, pmInterval{i}, 0);
        CALL(pmom_pw_pm_stat_clear, number, pmInterval{i}, 0);
        CALL(pmom_ima_group_pm_stat_clear, number, pmInterval{i}, 0);
        CALL(pmom_ima_link_pm_stat_clear, number, pmInterval{i}, 0);
    }
    CALL(config_del_ima, number);
    CALL(pmom_sys_om_stat_get, &sysOm, 1);
    CALL(config_get_pdh_params, &port, number);
    CALL(config_set_pdh_params, &port, number);
    CALL(config_set_pdh_admin, adminStatus{2}, number);
    CALL(config_get_pdh_admin, &admin, number);
    CALL(config_get_pdh_oper_state, &oper, number);
    CALL(config_get_pdh_lpbk, &portLoopback, number);
    CALL(config_set_pdh_lpbk, &portLoopback, number);
    CALL(config_set_system_mode, eqptMode{2});
    CALL(config_get_system_mode, &mode);
    const unsigned char mac[6] = {2, 0, 0, 0, 0, 1};
    CALL(config_set_pwe_src_mac_addr, mac);
    CALL(config_get_pwe_if, &interface);
    CALL(config_system_tpid_set, 0x9100);
    CALL(config_get_system_params, &params);
    const unsigned address = 0xC0000201;
    CALL(config_set_pwe_src_ip_addr, &address);
    const lopsThreshold lops{1, 2};
    CALL(config_set_pwe_lops_threshold, &lops);
    const clkOut clocks{1, 2};
    CALL(config_set_clk_out, &clocks);
    CALL(config_set_psn_net_type, psnNetType{2});
    const temperatureThr thresholds{60, 70};
    CALL(config_set_temperature_thr, &thresholds);
    CALL(config_get_temperature, &word);
    CALL(config_get_sys_status, &status);
    CALL(config_get_sys_version, &version);
    CALL(config_get_sys_link_status, &link);
    CALL(config_get_peer_server_params, &server);
    CALL(config_set_debug_info_params, &debug);
    CALL(config_get_debug_info_params, &debug);
    CALL(config_get_sys_lpbk, &loopback);
    CALL(config_set_sys_lpbk, &loopback);
    CALL(config_init_tpgm, &setup);
    CALL(config_get_tpgm_status, &tpgm);
    CALL(config_clear_tpgm_status, 1);
    for (objType type : {OBJ_SYSTEM, OBJ_PDH, OBJ_PWE, OBJ_IMA_GROUP, OBJ_IMA_LINK}) {
        CALL(alarm_get_active_bits, type, number, &word);
        CALL(alarm_set_status_bits, type, 0xFF, 0xF0);
        CALL(alarm_raise_alarm, type, number, 5, 1);
    }
    CALL(alarm_set_notification, alarmMode{4}, 1);
    CALL(alarm_get_notification, &report, &word);
    CALL(alarm_subscribe, 0, 0, [](const alarmEvent *) {});
    CALL(alarm_process_notification);
    CALL(alarm_unsubscribe);
    CALL(pmom_subscribe, [](pmInterval) {});
    CALL(pmom_process_notification);
    CALL(pmom_unsubscribe);
    request.mode = UpgradeMode{1};
    request.fileName[0] = 'f';
    CALL(upgrade_load, &request);
    CALL(upgrade_status_get, 2, &upgrade);
    CALL(forker_box_shutdown);
    CALL(kv_log_clear);
#undef CALL
    return codes;
}

// Calls every function of the control interface; gives how many of those that can fail failed.
int controlEverything(uint32_t number)
{
    int failed = 0;
    const auto count = [&](int result) { failed += result != 0; };
    kvSimFault fault = faultOf("config_get_pw", KV_SIM_CODE, 7);
    kvSimCall call;
    kvSimLog record;
    uint32_t word;
    uint64_t lost;
    count(kv_sim_open());
    count(kv_sim_fault_add(&fault));
    count(kv_sim_fault_get(0, &fault));
    count(kv_sim_fault_clear());
    count(kv_sim_pending(&word, &lost));
    count(kv_sim_alarm_send(99, number, 1, 1));
    count(kv_sim_alarm_burst(99, number, 1, 1, 2, 1));
    count(kv_sim_alarm_set(KV_SIM_PDH, number, 3));
    count(kv_sim_alarm_get(KV_SIM_PDH, number, &word));
    count(kv_sim_interval_period(1, 60));
    count(kv_sim_interval_end(1));
    count(kv_sim_interval_send(9));
    count(kv_sim_pm_set(KV_SIM_PDH, number, 1, 3, 3));
    count(kv_sim_om_set(KV_SIM_SYSTEM, 1, 3, 3));
    count(kv_sim_upgrade_fail(3));
    count(kv_sim_clock_stop(1));
    count(kv_sim_clock_set(5 * SECOND));
    count(kv_sim_clock_advance(100 * SECOND));
    const uint64_t calls = kv_sim_journal_last();
    for (uint64_t n = calls; n + 1200 > calls; --n)
        EXPECT_TRUE(kv_sim_journal_get(n, &call) != 0 || call.function);
    const uint64_t records = kv_sim_log_last();
    for (uint64_t n = records; n + 600 > records; --n)
        kv_sim_log_get(n, &record);
    kv_sim_hanging();
    kv_sim_clock_get();
    kv_sim_clock_stopped();
    count(kv_sim_reset());
    return failed;
}

// What a killed process must not leave half of: every record says the same thing several times.
// 0 is what the state of delivery says.

pdhParams portOf(uint32_t n)
{
    pdhParams port{};
    port.adminStatus = adminStatus{1};
    port.clockMode = pdhClockMode{1};
    port.frameMode = pdhFrameMode{1};
    port.lineCode = pdhCode{1};
    port.niuMode = pdhNiuMode{1};
    port.clockParam = n;
    port.syncAux = ~n;
    port.auxParam = n * 7;
    return port;
}

pwConfig pwOf(uint32_t n)
{
    pwConfig pw{};
    pw.pweType = PWE_TYPE_ATM_3;
    pw.adminStatus = adminStatus{1};
    pw.encType = pweEncType{2};
    pw.tagMode = tagMode{1};
    pw.atmMode = atmMode{1};
    pw.atmType = atmType{1};
    pw.atmClpMap = atmClpMap{1};
    pw.payloadSize = 48;
    pw.circuit = n;
    memset(pw.platform368, static_cast<int>(n & 0xFF), sizeof pw.platform368);
    return pw;
}

// Changes the device for ever, in all ways that take more than one write.
void keepChanging(Signal &changing)
{
    imaParams group{};
    const kvSimFault once = faultOf("config_get_temperature", KV_SIM_CODE, 77, 1);
    for (uint32_t n = 1;; ++n) {
        const pdhParams port = portOf(n);
        config_set_pdh_params(&port, 1);
        const lopsThreshold lops{n, ~n};
        config_set_pwe_lops_threshold(&lops);
        const pwConfig pw = pwOf(n);
        config_add_pw(&pw, 1);
        config_set_pw(&pw, 1);
        if (n % 3 == 0)
            config_del_pw(1);
        config_add_ima(&group, 1);
        config_add_ima_link(n % 5 + 1, 1);
        config_del_ima_link(n % 3 + 1, 1);
        if (n % 7 == 0)
            config_del_ima(1);
        kv_sim_fault_add(&once);
        unsigned temperature;
        config_get_temperature(&temperature);
        kv_log(4, 1, "sim_test", "keepChanging", static_cast<int>(n), "%u/%u", n, n);
        alarm_set_status_bits(OBJ_PDH, ~0U, n);
        kv_sim_pm_set(KV_SIM_PDH, 1, 1, 1, n);
        kv_sim_interval_end(1);
        if (n % 1000 == 0)
            kv_sim_reset();
        if (n == 1)
            changing.send();
    }
}

void expectWhole(const pdhParams &port)
{
    const pdhParams whole = portOf(port.clockParam);
    EXPECT_TRUE(port.clockParam == 0 || memcmp(&port, &whole, sizeof port) == 0) << port.clockParam;
}

void expectWholeDevice()
{
    ASSERT_EQ(kv_sim_open(), 0) << kv_sim_error();

    pdhParams port;
    ASSERT_EQ(config_get_pdh_params(&port, 1), KV_OK);
    expectWhole(port);

    pweIf interface;
    ASSERT_EQ(config_get_pwe_if(&interface), KV_OK);
    EXPECT_TRUE(interface.lops2 == ~interface.lops1 ||
                (interface.lops1 == 10 && interface.lops2 == 20))
        << interface.lops1 << ", " << interface.lops2;

    pwConfig pw;
    if (config_get_pw(&pw, 1) == KV_OK) {
        const pwConfig wholePw = pwOf(pw.circuit);
        EXPECT_EQ(memcmp(&pw, &wholePw, sizeof pw), 0);
    }

    // The group's list of links and the links' group agree.
    imaParams group{};
    if (config_get_ima_params(&group, 1) != KV_OK) {
        EXPECT_EQ(config_add_ima(&group, 1), KV_OK);
    }
    for (uint32_t link = 1; link <= 5; ++link) {
        const auto end = group.links + group.linkCount;
        const bool listed = std::any_of(group.links, end,
                                        [=](const imaLinkEntry &it) { return it.linkId == link; });
        EXPECT_EQ(config_add_ima_link(link, 1), listed ? 256U : KV_OK) << link;
        EXPECT_EQ(config_del_ima_link(link, 1), KV_OK);
    }

    // Of port 1 the first word counts, and the last tells that the others do.
    pdhPmStat pm;
    ASSERT_EQ(pmom_pdh_pm_stat_get(1, pmInterval{1}, 0, &pm), KV_OK);
    EXPECT_EQ(pm.line[12], 1U);

    // A fault for one call has not become one for all.
    unsigned temperature;
    kvSimFault fault;
    for (unsigned i = 0; kv_sim_fault_get(i, &fault) == 0; ++i)
        EXPECT_EQ(fault.times, 1U);
    const unsigned last = kv_sim_fault_get(0, &fault) == 0;
    EXPECT_EQ(config_get_temperature(&temperature), last ? 77U : KV_OK);
    EXPECT_EQ(kv_sim_fault_clear(), 0);

    // The alarms of all ports were set by one call.
    uint32_t first;
    uint32_t bits;
    alarm_get_active_bits(OBJ_PDH, 1, &first);
    for (uint32_t i = 2; i <= KV_SIM_PORTS; ++i) {
        alarm_get_active_bits(OBJ_PDH, i, &bits);
        EXPECT_EQ(bits, first) << i;
    }

    kvSimLog record;
    for (uint64_t n = kv_sim_log_last(); kv_sim_log_get(n, &record) == 0; --n)
        EXPECT_EQ(std::to_string(record.line) + '/' + std::to_string(record.line), record.text);
    kvSimCall call;
    for (uint64_t n = kv_sim_journal_last(); kv_sim_journal_get(n, &call) == 0; --n) {
        if (strcmp(call.function, "config_set_pdh_params") != 0)
            continue;
        memcpy(&port, call.record, sizeof port);
        EXPECT_EQ(port.syncAux, ~port.clockParam);
    }
}

} // namespace

TEST_F(SimulatedDevice, IsUsableAndWholeAfterAnyOfManyKills)
{
    const char *wanted = getenv("KV_SIM_TEST_KILLS");
    const int kills = wanted ? atoi(wanted) : 400;
    std::minstd_rand random{1};
    // The device is cleaned up by whoever meets the dead process's lock, or by the first to open
    // it.
    for (const bool inUse : {true, false}) {
        uint64_t calls = 0;
        Signal called;
        Process bystander{path, [=] {
                              EXPECT_EQ(kv_sim_open(), 0);
                              pause();
                          }};
        if (!inUse)
            bystander.kill();
        for (int i = 0; i < kills / 2 && !HasFailure(); ++i) {
            const bool anew = !inUse && i % 4 == 0; // then mostly while the device is being made
            if (anew)
                std::filesystem::remove(path);
            Signal changing;
            Process writer{path, [&] { keepChanging(changing); }};
            if (!anew)
                changing.wait();
            sleep_for(microseconds{random() % (anew ? 1000 : 4000)});
            writer.kill();
            run(path, [&] {
                expectWholeDevice();
                called.send(kv_sim_journal_last());
            });
            calls += HasFailure() ? 0 : called.wait();
        }
        EXPECT_GT(calls, static_cast<uint64_t>(kills)) << "the kills came too soon";
    }
}

TEST_F(SimulatedDevice, IsSharedByTheProcessesThatNameItsFileAndElsePrivate)
{
    const auto set = [] { EXPECT_EQ(config_system_tpid_set(0x9100), KV_OK); };
    const auto expect = [](uint16_t tpid) {
        return [=] {
            sysParams params;
            EXPECT_EQ(config_get_system_params(&params), KV_OK);
            EXPECT_EQ(params.tpid, tpid);
        };
    };
    run(path, set);
    run(path, expect(0x9100));
    run(folder + "/another", expect(0x8100));
    run("", set);
    run("", expect(0x8100));

    // A forked child shares a file's device and gets a copy of a private one.
    for (const std::string &device : {path, std::string{}}) {
        run(device, [&] {
            config_system_tpid_set(0x88A8);
            run(device, [] {
                sysParams params;
                config_get_system_params(&params);
                EXPECT_EQ(params.tpid, 0x88A8);
                config_system_tpid_set(0x9200);
            });
            expect(device.empty() ? 0x88A8 : 0x9200)();
        });
    }
}

TEST_F(SimulatedDevice, StaysInUseWhenAProcessClosesAllDescriptors)
{
    Signal closed;
    Process user{path, [&] {
                     kv_sim_open();
                     for (int i = 3; i < 100; ++i)
                         if (!closed.has(i))
                             close(i);
                     closed.send();
                     pause();
                 }};
    closed.wait();
    std::filesystem::resize_file(path, 0);
    run(path, [] {
        EXPECT_EQ(kv_sim_open(), -1);
        EXPECT_NE(strstr(kv_sim_error(), "others use it"), nullptr) << kv_sim_error();
    });
}

TEST_F(SimulatedDevice, RefusesAFileThatIsNoDeviceAndLeavesItAsItIs)
{
    run(path, [] { config_system_tpid_set(0x9100); });
    const std::string device = contents(path);
    std::string version = device;
    version[8] = static_cast<char>(version[8] + 1);
    const struct {
        std::string bytes;
        const char *reason;
    } files[] = {
        {"short", "too short"},
        {"no device, but a text", "begins with something else"},
        {randomBytes(device.size(), 1), "begins with something else"},
        {std::string(device.size(), '\0'), "begins with something else"},
        {device.substr(0, device.size() - 1), "cut off"},
        {device.substr(0, 4096), "cut off"},
        {device + "x", "cut off or grown"},
        {version, "another version"},
    };
    const auto expectRefusal = [](const std::string &name, const char *reason) {
        run(name, [=] {
            EXPECT_EQ(kv_sim_open(), -1);
            EXPECT_NE(strstr(kv_sim_error(), reason), nullptr) << kv_sim_error();
            EXPECT_NE(strstr(kv_sim_error(), name.c_str()), nullptr) << kv_sim_error();
            for (const auto &[function, code] : callEverything(1)) {
                EXPECT_EQ(code, KV_FAILURE) << function;
                EXPECT_NE(strstr(config_get_error_string(), reason), nullptr);
            }
            EXPECT_EQ(GetObjectCount(OBJ_PDH), 0U);
            EXPECT_EQ(alarm_notification_sock(), -1);
            EXPECT_STREQ(kv_rc_to_string(KV_FAILURE), "general failure");
            EXPECT_EQ(controlEverything(1), 19);
        });
    };
    for (const auto &[bytes, reason] : files) {
        write(path, bytes);
        expectRefusal(path, reason);
        EXPECT_TRUE(contents(path) == bytes) << reason;
    }
    expectRefusal(folder, "directory");
    expectRefusal("/dev/null", "not a regular file");
    expectRefusal(folder + "/none/device", "No such file");
    write(path, device);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    run("", [this] {
        setenv("KV_SIM_DEVICE", path.c_str(), 1);
        if (geteuid() == 0 && setuid(65534) != 0)
            abort();
        EXPECT_EQ(kv_sim_open(), -1);
        EXPECT_NE(strstr(kv_sim_error(), "Permission denied"), nullptr) << kv_sim_error();
    });
    EXPECT_TRUE(contents(path) == device);
}

TEST_F(SimulatedDevice, IsNotLedAstrayByGarbageInItsFile)
{
    run(path, [] { kv_sim_open(); });
    const std::string device = contents(path);
    for (unsigned seed = 1; seed <= 20; ++seed) {
        // Words that may mean something: counts that are and aren't too large, types, states.
        std::minstd_rand random{seed};
        std::string garbage = device;
        constexpr size_t HEAD = 16;
        for (size_t at = HEAD; at + sizeof(uint32_t) <= garbage.size(); at += sizeof(uint32_t)) {
            const uint32_t words[] = {
                0, 1, 3, 4, 20, 21, 100, ~0U, static_cast<uint32_t>(random())};
            memcpy(&garbage[at], &words[random() % std::size(words)], sizeof(uint32_t));
        }
        write(path, garbage);
        run(path, [=] {
            ASSERT_EQ(kv_sim_open(), 0) << kv_sim_error();
            kv_sim_fault_clear(); // one of them may be a delay of weeks
            for (uint32_t number = 1; number <= KV_SIM_PWS; ++number) {
                pwOmStats stats;
                pmom_pw_om_stat_get(number, &stats);
                const pwAtmXc xc{1, 2, 3, static_cast<uint16_t>(number), pweAtmXcType{1}};
                config_del_pw_atm_xc(&xc, number);
                config_add_pw_atm_xc(&xc, number);
                config_del_pw_atm_xc(&xc, number);
            }
            for (uint32_t number = 1; number <= KV_SIM_GROUPS; ++number)
                EXPECT_EQ(callEverything(number)["config_get_pdh_params"], KV_OK);
            controlEverything(8);
            EXPECT_EQ(callEverything(1)["config_add_pw"], KV_OK);
        });
    }
}

TEST_F(SimulatedDevice, DoesToCallsWhatItsFaultsSay)
{
    run("", [] {
        unsigned temperature;
        adminStatus admin;
        const auto add = [](kvSimFault fault, uint32_t skip) {
            fault.skip = skip;
            EXPECT_EQ(kv_sim_fault_add(&fault), 0);
        };
        add(faultOf("config_get_temperature", KV_SIM_CODE, 16, 2), 1);
        std::vector<kvRc> codes;
        for (int i = 0; i < 5; ++i)
            codes.push_back(config_get_temperature(&temperature));
        EXPECT_EQ(codes, (std::vector<kvRc>{0, 16, 16, 0, 0}));

        kvSimFault ofPort5 = faultOf("", KV_SIM_CODE, 64);
        ofPort5.anyObject = 0;
        ofPort5.object = 5;
        add(ofPort5, 0);
        EXPECT_EQ(config_get_pdh_admin(&admin, 4), KV_OK);
        EXPECT_EQ(config_set_pdh_admin(adminStatus{2}, 5), 64U);
        EXPECT_EQ(config_get_temperature(&temperature), KV_OK);
        EXPECT_STREQ(config_get_error_string(), "injected fault in config_set_pdh_admin");
        EXPECT_EQ(kv_sim_fault_clear(), 0);
        EXPECT_EQ(config_get_pdh_admin(&admin, 5), KV_OK);
        EXPECT_EQ(admin, adminStatus{1}); // the call that failed changed nothing

        add(faultOf("config_get_temperature", KV_SIM_DELAY, 50, 1), 0);
        const auto start = steady_clock::now();
        EXPECT_EQ(config_get_temperature(&temperature), KV_OK);
        EXPECT_GE(steady_clock::now() - start, milliseconds{50});
        EXPECT_EQ(temperature, 41U);

        add(faultOf("config_get_sys_version", KV_SIM_GARBAGE, 3, 1), 0);
        swVersion versions[2];
        EXPECT_EQ(config_get_sys_version(&versions[0]), KV_OK);
        EXPECT_EQ(config_get_sys_version(&versions[1]), KV_OK);
        for (int i = 0; i < 10; ++i)
            EXPECT_NE(memcmp(versions[0].text[i], versions[1].text[i], 128), 0) << i;

        add(faultOf("GetObjectCount", KV_SIM_CODE, 4711, 1), 0);
        EXPECT_EQ(GetObjectCount(OBJ_PDH), 4711U);
        EXPECT_EQ(GetObjectCount(OBJ_PDH), 16U);

        const kvSimFault unknown = faultOf("config_get_temperatur", KV_SIM_CODE, 1);
        EXPECT_EQ(kv_sim_fault_add(&unknown), -1);
    });
}

TEST_F(SimulatedDevice, LetsAHangingCallGoOnWhenAnotherProcessEndsItsFault)
{
    for (const auto release : {kv_sim_fault_clear, kv_sim_reset}) {
        Process hanging{path, [] {
                            const kvSimFault fault =
                                faultOf("config_get_temperature", KV_SIM_HANG, 0);
                            EXPECT_EQ(kv_sim_fault_add(&fault), 0);
                            unsigned temperature = 0;
                            EXPECT_EQ(config_get_temperature(&temperature), KV_OK);
                            EXPECT_EQ(temperature, 41U);
                        }};
        run(path, [=] {
            EXPECT_TRUE(soon([] { return kv_sim_hanging() == 1; }));
            EXPECT_EQ(config_system_tpid_set(0x9100), KV_OK); // others go on
            EXPECT_EQ(release(), 0);
            EXPECT_EQ(kv_sim_hanging(), 0U);
        });
        EXPECT_EQ(hanging.end(), 0);
    }
}

namespace
{

std::vector<alarmEvent> events;

int subscribeToAlarms()
{
    const int descriptor = alarm_notification_sock();
    EXPECT_GE(descriptor, 0);
    EXPECT_EQ(alarm_subscribe(0, 0, [](const alarmEvent *event) { events.push_back(*event); }),
              KV_OK);
    return descriptor;
}

bool isReadable(int descriptor, int timeoutMs)
{
    pollfd waited{descriptor, POLLIN, 0};
    return poll(&waited, 1, timeoutMs) == 1;
}

// Takes notifications until there are as many as wanted.
void takeEvents(int descriptor, size_t wanted)
{
    while (events.size() < wanted && isReadable(descriptor, 5000))
        EXPECT_EQ(alarm_process_notification(), KV_OK);
    EXPECT_EQ(events.size(), wanted);
}

uint32_t pending()
{
    uint32_t waiting = 0;
    uint64_t lost;
    EXPECT_EQ(kv_sim_pending(&waiting, &lost), 0);
    return waiting;
}

} // namespace

TEST_F(SimulatedDevice, SendsEventsToASubscriberInAnotherProcess)
{
    Signal subscribed;
    Process subscriber{path, [&] {
                           const int descriptor = subscribeToAlarms();
                           subscribed.send();
                           takeEvents(descriptor, 102);
                           EXPECT_EQ(events[0].objId, 64U);
                           EXPECT_EQ(events[100].status, 5U);
                           const alarmEvent &last = events.back();
                           EXPECT_EQ(last.objType, OBJ_PWE);
                           EXPECT_EQ(last.objId, 7U);
                           EXPECT_EQ(last.status, 4U);
                           EXPECT_EQ(last.delta, 1U);
                           EXPECT_FALSE(isReadable(descriptor, 0));
                       }};
    subscribed.wait();
    run(path, [] {
        EXPECT_EQ(kv_sim_alarm_burst(KV_SIM_LINK, 64, 1, 1, 100, 0), 0);
        const pwConfig pw = pwOf(1);
        EXPECT_EQ(config_add_pw(&pw, 7), KV_OK);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PW, 7, 5), 0);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PW, 7, 5), 0); // no change, no event
        EXPECT_EQ(alarm_raise_alarm(OBJ_PWE, 7, 0, 0), KV_OK);
    });
    EXPECT_EQ(subscriber.end(), 0);
}

TEST_F(SimulatedDevice, KeepsAnEventWhoseProcessingFailedUntilTheNextTry)
{
    run("", [] {
        const int descriptor = subscribeToAlarms();
        const kvSimFault fault = faultOf("alarm_process_notification", KV_SIM_CODE, 8, 1);
        kv_sim_fault_add(&fault);
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        EXPECT_EQ(alarm_process_notification(), 8U);
        EXPECT_TRUE(isReadable(descriptor, 0));
        EXPECT_EQ(events.size(), 0U);
        takeEvents(descriptor, 1);
        EXPECT_FALSE(isReadable(descriptor, 0));
    });
}

TEST_F(SimulatedDevice, CountsWhatASlowSubscriberLosesAndForgetsAKilledOne)
{
    const uint32_t room = 4095;
    Signal subscribed;
    Signal forgotten;
    Process slow{path, [&] {
                     subscribeToAlarms();
                     // A child has the descriptors of its parent, and outlives it.
                     if (fork() == 0) {
                         subscribed.send();
                         forgotten.wait();
                         _exit(0);
                     }
                     pause();
                 }};
    subscribed.wait();
    run(path, [=] {
        EXPECT_EQ(kv_sim_alarm_burst(KV_SIM_PDH, 1, 1, 1, room + 10, 0), 0);
        uint32_t waiting;
        uint64_t lost;
        EXPECT_EQ(kv_sim_pending(&waiting, &lost), 0);
        EXPECT_EQ(waiting, room);
        EXPECT_EQ(lost, 10U);
    });
    slow.kill();
    run(path, [] {
        EXPECT_EQ(pending(), 0U);
        // Room for everybody: nothing of the killed ones stays.
        for (int i = 0; i < 40; ++i) {
            Process killed{getenv("KV_SIM_DEVICE"), [] {
                               subscribeToAlarms();
                               raise(SIGKILL);
                           }};
            EXPECT_TRUE(WIFSIGNALED(killed.end()));
        }
        const int descriptor = subscribeToAlarms();
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        takeEvents(descriptor, 1);
    });
    forgotten.send();
}

TEST_F(SimulatedDevice, LeavesNoDescriptorBehindASubscription)
{
    run("", [] {
        const auto open = [] {
            return std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {});
        };
        const auto before = open();
        for (int i = 0; i < 10000; ++i) {
            alarm_notification_sock();
            alarm_subscribe(0, 0, [](const alarmEvent *) {});
            pmom_notification_sock();
            pmom_subscribe([](pmInterval) {});
            alarm_unsubscribe();
            pmom_unsubscribe();
        }
        EXPECT_EQ(open(), before);
        EXPECT_EQ(pending(), 0U);
    });
}

TEST_F(SimulatedDevice, HandsOverOnlyWhatWaitedWhenItWasAsked)
{
    run("", [] {
        const int descriptor = alarm_notification_sock();
        static int handled;
        alarm_subscribe(0, 0, [](const alarmEvent *) {
            ++handled;
            kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1); // a stream that never ends
        });
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        for (int i = 1; i <= 3; ++i) {
            EXPECT_TRUE(isReadable(descriptor, 0));
            alarm_process_notification();
            EXPECT_EQ(handled, i);
        }
    });
}

namespace
{

std::map<uint32_t, uint32_t> reports; // how many of each interval

// Every interval's port 1 has counted as many as intervals ended before it.
void expectCounters(pmInterval interval)
{
    const uint32_t count = reports[interval]++;
    pdhPmStat stat;
    EXPECT_EQ(pmom_pdh_pm_stat_get(1, interval, 1, &stat), KV_OK);
    EXPECT_EQ(stat.line[0], count) << "interval " << interval;
    EXPECT_EQ(pmom_pdh_pm_stat_get(1, interval, 0, &stat), KV_OK);
    EXPECT_EQ(stat.line[0], 0U) << "interval " << interval;
    EXPECT_EQ(kv_sim_pm_set(KV_SIM_PDH, 1, interval, 1, count + 1), 0);
}

} // namespace

TEST_F(SimulatedDevice, EndsTheIntervalsOfADayOneByOneWhenItsClockIsMoved)
{
    Signal subscribed;
    Process subscriber{
        path, [&] {
            kv_sim_clock_stop(1);
            kv_sim_clock_set(86400 * SECOND);
            const int descriptor = pmom_notification_sock();
            EXPECT_EQ(pmom_subscribe(expectCounters), KV_OK);
            subscribed.send();
            while (reports[3] == 0 && isReadable(descriptor, 5000))
                pmom_process_notification();
            EXPECT_EQ(reports, (std::map<uint32_t, uint32_t>{{1, 96}, {2, 24}, {3, 1}}));
        }};
    subscribed.wait();
    run(path, [] {
        EXPECT_EQ(kv_sim_clock_advance(86400 * SECOND), 0);
        EXPECT_EQ(kv_sim_clock_get(), 2 * 86400 * SECOND);
        EXPECT_EQ(kv_sim_clock_advance(UINT64_MAX), -1);
    });
    EXPECT_EQ(subscriber.end(), 0);
}

TEST_F(SimulatedDevice, EndsAnIntervalByTheRunningClockWhileASubscriberWaits)
{
    run("", [] {
        const int descriptor = pmom_notification_sock();
        pmom_subscribe([](pmInterval interval) { ++reports[interval]; });
        kv_sim_clock_set(900 * SECOND - SECOND / 20);
        const auto start = steady_clock::now();
        while (reports[1] == 0 && isReadable(descriptor, 5000))
            pmom_process_notification();
        EXPECT_GE(steady_clock::now() - start, milliseconds{40});
        EXPECT_EQ(reports, (std::map<uint32_t, uint32_t>{{1, 1}}));
        // What is counted afterwards belongs to the next, whoever looks at the clock first.
        kv_sim_clock_set(1800 * SECOND - 1);
        sleep_for(milliseconds{1});
        kv_sim_pm_set(KV_SIM_PDH, 1, 1, 1, 5);
        pdhPmStat stat;
        EXPECT_EQ(pmom_pdh_pm_stat_get(1, pmInterval{1}, 1, &stat), KV_OK);
        EXPECT_EQ(stat.line[0], 0U);
    });
}

TEST_F(SimulatedDevice, OwnsTheClockThatTheLibrarySets)
{
    run("", [] {
        // Should the library reach for the host's clock, it is refused.
        if (geteuid() == 0 && setuid(65534) != 0)
            abort();
        vexoResult result{};
        const auto before = std::chrono::system_clock::now();
        vexo_cmi_sys_tod_set(1000000000, 5, &result);
        EXPECT_EQ(result.rc, VEXO_RC_OK) << result.message;
        EXPECT_LT(std::chrono::system_clock::now() - before, std::chrono::hours{1});
        EXPECT_EQ(kv_sim_clock_get() / SECOND, 1000000000U);
        vexo_cmi_sys_kato_send(2000000000, 5, &result);
        EXPECT_EQ(kv_sim_clock_get() / SECOND, 2000000000U);
        vexo_cmi_sys_kato_send(1000000000, 5, &result); // not due yet, by the device clock
        EXPECT_EQ(kv_sim_clock_get() / SECOND, 2000000000U);
        vexo_cmi_sys_tod_set(1, 1000000, &result);
        EXPECT_STREQ(result.message, "1000000 microseconds are not less than a second");
        EXPECT_EQ(kv_sim_clock_stop(1), 0);
        const uint64_t stopped = kv_sim_clock_get();
        sleep_for(milliseconds{2});
        EXPECT_EQ(kv_sim_clock_get(), stopped);
    });
}

TEST_F(SimulatedDevice, RaisesAnAlarmWhenItsLogIsFull)
{
    run("", [] {
        constexpr uint32_t FULL = 1U << EV_LOG_FULL_ALM;
        uint32_t bits;
        for (int i = 1; i <= 512; ++i) {
            kv_log(7, 1, "file", "function", i, "for debugging: does not count");
            EXPECT_EQ(kv_sim_alarm_get(KV_SIM_SYSTEM, 1, &bits), 0);
            EXPECT_EQ(bits, 0U) << i;
            kv_log(4, 1, "file", "function", i, "%d", i);
        }
        kv_sim_alarm_get(KV_SIM_SYSTEM, 1, &bits);
        EXPECT_EQ(bits, FULL);
        kvSimLog record;
        EXPECT_EQ(kv_sim_log_last(), 1024U);
        EXPECT_EQ(kv_sim_log_get(512, &record), -1);
        EXPECT_EQ(kv_sim_log_get(514, &record), 0);
        EXPECT_STREQ(record.text, "257");
        EXPECT_EQ(kv_log_clear(), KV_OK);
        EXPECT_EQ(kv_sim_log_get(1024, &record), -1);
    });
}

TEST_F(SimulatedDevice, CountsEveryCallOfManyThreadsAndCanBeResetMeanwhile)
{
    run("", [] {
        constexpr uint32_t ROUNDS = 10000;
        constexpr uint32_t THREADS = 3;
        const auto work = [] {
            for (uint32_t n = 1; n <= ROUNDS; ++n) {
                const pdhParams in = portOf(n);
                pdhParams out;
                EXPECT_EQ(config_set_pdh_params(&in, 1), KV_OK);
                EXPECT_EQ(config_get_pdh_params(&out, 1), KV_OK);
                expectWhole(out);
                EXPECT_EQ(config_set_pdh_admin(adminStatus{9}, 1), 2U);
                EXPECT_STREQ(config_get_error_string(),
                             "administrative status 9 is not one of 1 to 3");
            }
        };
        for (const bool resets : {false, true}) {
            std::vector<std::thread> threads;
            for (uint32_t i = 0; i < THREADS; ++i)
                threads.emplace_back(work);
            for (int i = 0; i < (resets ? 20 : 0); ++i) {
                EXPECT_EQ(kv_sim_reset(), 0);
                sleep_for(milliseconds{1});
            }
            for (std::thread &thread : threads)
                thread.join();
            if (!resets) {
                EXPECT_EQ(kv_sim_journal_last(), ROUNDS * THREADS * 4);
            }
        }
    });
}
