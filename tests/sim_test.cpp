// The simulated device: each test's devices belong to processes of its own, so the test itself
// never uses one.
#include "sim_device.h"

#include <describe.h>
#include <kv_alarm.h>
#include <kv_upgrade.h>
#include <meaning.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::chrono::microseconds;
using std::chrono::steady_clock;

// By how much a process sees the host's clocks differ from what they are.
std::map<clockid_t, int64_t> stepped;

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

void expectWhole(const pdhParams &port)
{
    const pdhParams whole = portOf(port.clockParam);
    EXPECT_TRUE(port.clockParam == 0 || memcmp(&port, &whole, sizeof port) == 0) << port.clockParam;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    static const auto real = reinterpret_cast<decltype(&clock_gettime)>(dlsym(
        RTLD_NEXT, sizeof time->tv_sec > sizeof(long) ? "__clock_gettime64" : "clock_gettime"));
    const int failed = real(clock, time);
    if (const auto found = stepped.find(clock); found != stepped.end())
        time->tv_sec += static_cast<time_t>(found->second);
    return failed;
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
    const auto ofVersion = [&](char version) {
        std::string file = device;
        file[8] = version;
        return file;
    };
    std::string build = device;
    build[12] = static_cast<char>(build[12] + 4);
    const struct {
        std::string bytes;
        const char *reason;
    } files[] = {
        {"short", "too short"},
        {"no device, but a text", "begins with something else"},
        {std::string(device.size(), '\0'), "begins with something else"},
        {device.substr(0, device.size() - 1), "cut off"},
        {device.substr(0, 4096), "cut off"},
        {device + "x", "cut off or grown"},
        {ofVersion(4), "made by version 4, this is 5: remove it to begin anew"},
        {ofVersion(6), "made by version 6, this is 5: remove it to begin anew"},
        {build, "made by another build: remove it to begin anew"},
    };
    // Those that succeed whatever the platform answers.
    const std::set<std::string> succeeding = {
        "vexo_cmi_misc_log_reset", "vexo_cmi_misc_dbg_mode_set", "vexo_cmi_pdh_cable_len_set",
        "vexo_cmi_ima_pm_clear"};
    const auto expectRefusal = [&](const std::string &name, const char *reason) {
        run(name, [&] {
            EXPECT_EQ(kv_sim_open(), -1);
            EXPECT_NE(strstr(kv_sim_error(), reason), nullptr) << kv_sim_error();
            EXPECT_NE(strstr(kv_sim_error(), name.c_str()), nullptr) << kv_sim_error();
            for (const describe::Operation &operation : describe::operations()) {
                std::array<uint32_t, 1024> storage[4]{};
                void *arguments[] = {&storage[0], &storage[1], &storage[2], &storage[3]};
                vexoResult result{};
                operation.call(arguments, &result);
                EXPECT_EQ(result.rc != VEXO_RC_GENERAL, succeeding.contains(operation.name))
                    << operation.name;
            }
            EXPECT_NE(strstr(config_get_error_string(), reason), nullptr);
            vexoResult result{};
            vexo_cmi_sys_tpid_set(0x9100, &result);
            EXPECT_NE(strstr(result.message, reason), nullptr) << result.message;
            EXPECT_EQ(GetObjectCount(OBJ_PDH), 0U);
            EXPECT_EQ(alarm_notification_sock(), -1);
            EXPECT_EQ(kv_sim_reset(), -1);
            EXPECT_EQ(kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1), -1);
        });
    };
    for (const auto &[bytes, reason] : files) {
        write(path, bytes);
        expectRefusal(path, reason);
        EXPECT_TRUE(contents(path) == bytes) << reason;
    }
    // However long the path is: its end is shown.
    const std::string deep = folder + "/" + std::string(200, 'x');
    std::filesystem::create_directory(deep);
    write(deep + "/device", ofVersion(1));
    run(deep + "/device", [] {
        EXPECT_EQ(kv_sim_open(), -1);
        const std::string text = kv_sim_error();
        EXPECT_TRUE(text.starts_with("made by version 1,")) << text;
        EXPECT_TRUE(text.ends_with("/device")) << text;
        EXPECT_LT(text.size(), size_t{VEXO_MESSAGE_SIZE});
    });
    expectRefusal(folder, "directory");
    ASSERT_EQ(mkfifo((folder + "/fifo").c_str(), 0600), 0);
    for (const std::string &file : {folder + "/fifo", std::string{"/dev/zero"}})
        expectRefusal(file, "not a regular file");
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

namespace
{

// An empty file system of this size, which goes when its last process does.
bool mountTmpfs(const std::string &folder, const std::string &size)
{
    return unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
}

void fill(const std::string &file)
{
    std::ofstream bytes{file, std::ios::binary};
    const std::string block(4096, 'x');
    while (bytes.write(block.data(), 4096).flush()) {
    }
}

} // namespace

TEST_F(SimulatedDevice, ReservesItsSpaceOrIsRefusedAndLeavesNothingBehind)
{
    const auto expectNone = [this](const char *reason) {
        for (const bool exists : {false, true}) {
            if (exists)
                write(path, "");
            EXPECT_EQ(kv_sim_open(), -1);
            EXPECT_NE(strstr(kv_sim_error(), reason), nullptr) << kv_sim_error();
            EXPECT_EQ(std::filesystem::exists(path), exists);
            EXPECT_TRUE(!exists || std::filesystem::file_size(path) == 0);
        }
        std::filesystem::remove(path);
    };
    run(path, [&] {
        const rlimit limit{1 << 20, 1 << 20};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        expectNone("File too large");
    });
    bool mounted = true;
    for (const char *size : {"4k", "16k", "80k", "1m"})
        run(path, [&] {
            if (mountTmpfs(folder, size))
                expectNone("No space left on device");
        });
    run(path, [&] {
        if (!(mounted = mountTmpfs(folder, "4m")))
            return;
        EXPECT_EQ(kv_sim_open(), 0) << kv_sim_error();
        struct stat status;
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
        EXPECT_GE(status.st_blocks * 512, status.st_size);
        fill(folder + "/filler");
        // All of it is written to.
        EXPECT_EQ(alarm_subscribe(0, 0, [](const alarmEvent *) {}), KV_OK);
        EXPECT_EQ(pmom_subscribe([](pmInterval) {}), KV_OK);
        EXPECT_EQ(kv_sim_alarm_burst(KV_SIM_PDH, 1, 1, 1, 5000, 0), 0);
        EXPECT_EQ(kv_sim_reset(), 0);
    });
    if (!mounted)
        GTEST_SKIP() << "no file system can be mounted here";
}

TEST_F(SimulatedDevice, IsRefusedWithATextWhenAReaderKeepsItsFileLocked)
{
    run(path, [] { kv_sim_open(); });
    Signal locked;
    {
        Process reader{"", [&] {
                           const int descriptor = open(path.c_str(), O_RDONLY);
                           struct flock lock {
                           };
                           lock.l_type = F_RDLCK;
                           EXPECT_EQ(fcntl(descriptor, F_SETLK, &lock), 0);
                           locked.send();
                           pause();
                       }};
        locked.wait();
        run(path, [] {
            EXPECT_EQ(kv_sim_open(), -1);
            EXPECT_NE(strstr(kv_sim_error(), "kept the device's file locked"), nullptr)
                << kv_sim_error();
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
        ofPort5.object = 5;
        add(ofPort5, 0);
        EXPECT_EQ(config_get_pdh_admin(&admin, 4), KV_OK);
        EXPECT_EQ(config_set_pdh_admin(adminStatus{2}, 5), 64U);
        EXPECT_EQ(config_get_temperature(&temperature), KV_OK);
        EXPECT_STREQ(config_get_error_string(), "injected fault in config_set_pdh_admin");
        EXPECT_EQ(kv_sim_fault_clear(), 0);
        EXPECT_EQ(config_get_pdh_admin(&admin, 5), KV_OK);
        EXPECT_EQ(admin, adminStatus{1}); // the call that failed changed nothing

        kvSimFault any{}; // of no function and no object: of all
        any.value = 64;
        add(any, 0);
        EXPECT_EQ(config_get_pdh_admin(&admin, 5), 64U);
        EXPECT_EQ(config_get_temperature(&temperature), 64U);
        EXPECT_EQ(kv_sim_fault_clear(), 0);

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
        add(faultOf("alarm_get_notification", KV_SIM_GARBAGE, 3, 1), 0);
        alarmMode mode{2};
        uint32_t value = 0;
        EXPECT_EQ(alarm_get_notification(&mode, &value), KV_OK);
        EXPECT_TRUE(mode != 2 && value != 0) << "all that it answers";

        add(faultOf("GetObjectCount", KV_SIM_CODE, 4711, 1), 0);
        EXPECT_EQ(GetObjectCount(OBJ_PDH), 4711U);
        EXPECT_EQ(GetObjectCount(OBJ_PDH), 16U);

        add(faultOf("kv_log", KV_SIM_CODE, 5, 1), 0);
        EXPECT_EQ(kv_log(3, 29, "file", "function", 7, "lost"), 5);
        EXPECT_EQ(kv_sim_log_last(), 0U);

        const std::pair<kvSimFault, const char *> refused[] = {
            {faultOf("config_get_temperatur", KV_SIM_CODE, 1), "no platform function"},
            {faultOf("config_get_temperature", KV_SIM_HOLD + 1, 1), "no effect 11"},
            {faultOf("config_get_temperature", KV_SIM_CODE, 0), "0, which is success"},
            {kvSimFault{}, "0, which is success"},
        };
        for (const auto &[fault, reason] : refused) {
            EXPECT_EQ(kv_sim_fault_add(&fault), -1);
            EXPECT_NE(strstr(kv_sim_error(), reason), nullptr) << kv_sim_error();
        }
        EXPECT_EQ(config_get_temperature(&temperature), KV_OK);
    });
}

TEST_F(SimulatedDevice, MeetsTheCallThatItsJournalNumbersWhateverWasCalledBefore)
{
    run("", [] {
        constexpr kvRc FAILED = 64;
        const std::function<bool()> calls[] = {
            [] { return GetObjectCount(OBJ_PDH) == FAILED; },
            [] { return config_set_pdh_admin(adminStatus{2}, 5) == FAILED; },
            [] { return config_get_error_string() == nullptr; },
            [] { return kv_log(3, 29, "file", "function", 7, "%d", 8) != 0; },
            [] { return kv_rc_to_string(2) == nullptr; },
            [] { return alarm_notification_sock() < 0; },
            [] { return alarm_set_status_bits(OBJ_PDH, 1, 1) == FAILED; },
            [] { return kv_log_clear() != KV_OK; },
        };
        const std::set<size_t> reporting = {1, 6};
        for (uint32_t skip = 0; skip < std::size(calls); ++skip) {
            kvSimFault fault = faultOf("", KV_SIM_CODE, FAILED, 1);
            fault.skip = skip;
            EXPECT_EQ(kv_sim_reset(), 0);
            EXPECT_EQ(kv_sim_fault_add(&fault), 0);
            const auto met = reporting.lower_bound(skip);
            for (size_t i = 0; i < std::size(calls); ++i)
                EXPECT_EQ(calls[i](), met != reporting.end() && *met == i) << skip << ' ' << i;
            EXPECT_EQ(kv_sim_journal_last(), std::size(calls));
        }
        kvSimCall log;
        EXPECT_EQ(kv_sim_journal_get(4, &log), 0);
        EXPECT_STREQ(log.function, "kv_log");
        EXPECT_EQ((std::vector<uint32_t>{log.args, log.args + log.argCount}),
                  (std::vector<uint32_t>{3, 29, 7}));
        EXPECT_EQ((std::string{log.record, log.record + log.recordSize}), "8");
    });
}

TEST_F(SimulatedDevice, NamesTheNumbersOfACallAndKnowsWhichOfThemIsTheObject)
{
    run("", [] {
        pwConfig config;
        const pwDefaultsKey key{PWE_TYPE_TDM_1, pweEncType{2}};
        pdhPmStat stat;
        upgradeStatus status;
        const struct {
            std::function<kvRc()> call;
            std::string numbers;
            uint32_t object; // 0: none
        } rows[] = {
            {[] { return config_set_pdh_admin(adminStatus{2}, 5); }, " status=2 port=5", 5},
            {[&] { return config_get_pw_defaults(&config, &key, 7); }, " pwId=7", 7},
            {[] { return config_add_ima_link(9, 2); }, " link=9 group=2", 9},
            {[&] { return pmom_pdh_pm_stat_get(3, pmInterval{2}, 1, &stat); },
             " port=3 interval=2 which=1", 3},
            {[] { return alarm_raise_alarm(OBJ_PDH, 4, 3, 0); }, " type=1 number=4 alarm=3 state=0",
             4},
            {[] { return alarm_set_status_bits(OBJ_PDH, 2, 0); }, " type=1 mask=2 bits=0", 0},
            {[&] { return upgrade_status_get(2, &status); }, " constant=2", 0},
        };
        for (const auto &row : rows) {
            for (uint32_t object = 1; object < 10; ++object) {
                kvSimFault fault = faultOf("", KV_SIM_CODE, 64);
                fault.object = object;
                EXPECT_EQ(kv_sim_fault_add(&fault), 0);
                EXPECT_EQ(row.call() == 64, object == row.object) << row.numbers << ' ' << object;
                EXPECT_EQ(kv_sim_fault_clear(), 0);
            }
            kvSimCall call;
            EXPECT_EQ(kv_sim_journal_get(kv_sim_journal_last(), &call), 0);
            std::string numbers;
            for (uint32_t i = 0; i < call.argCount; ++i)
                numbers += std::string{" "} + call.argNames[i] + "=" + std::to_string(call.args[i]);
            EXPECT_EQ(numbers, row.numbers);
        }
    });
}

TEST_F(SimulatedDevice, FailsTheCallsOfThatProcessAloneThatAFaultIsFor)
{
    const auto call = [] {
        unsigned temperature;
        return config_get_temperature(&temperature);
    };
    Signal armed, done;
    Process other{path, [&] {
                      armed.wait();
                      EXPECT_EQ(call(), 64U);
                      run(path, [&] { EXPECT_EQ(call(), KV_OK) << "a child of it"; });
                      done.send();
                  }};
    run(path, [&] {
        kvSimFault fault = faultOf("config_get_temperature", KV_SIM_CODE, 64);
        fault.process = static_cast<uint32_t>(other.id());
        EXPECT_EQ(kv_sim_fault_add(&fault), 0);
        EXPECT_EQ(call(), KV_OK);
        armed.send();
        done.wait();
        EXPECT_EQ(call(), KV_OK);
        EXPECT_EQ(kv_sim_fault_get(0, &fault), 0);
        EXPECT_EQ(fault.met, 1U);
    });
    EXPECT_EQ(other.end(), 0);
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
            const auto called = [](uint64_t number) {
                kvSimCall call{};
                EXPECT_EQ(kv_sim_journal_get(number, &call), 0) << kv_sim_error();
                return call;
            };
            const uint64_t last = kv_sim_journal_last();
            EXPECT_EQ(called(last).pending, 0U);
            EXPECT_STREQ(called(last - 1).function, "config_get_temperature");
            EXPECT_NE(called(last - 1).pending, 0U);
            EXPECT_EQ(release(), 0);
            EXPECT_EQ(kv_sim_hanging(), 0U);
            // It returns under the number that it had, or as a new one where all were forgotten.
            const uint64_t number = release == kv_sim_reset ? 1 : last - 1;
            EXPECT_TRUE(soon([=] { return kv_sim_journal_last() >= number; }));
            EXPECT_TRUE(soon([=] { return called(number).pending == 0; }));
            EXPECT_STREQ(called(number).function, "config_get_temperature");
            EXPECT_EQ(kv_sim_journal_last(), release == kv_sim_reset ? 1 : last);
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
        createPwe(VEXO_PWE_TYPE_TDM_1, 7);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PW, 7, 5), 0);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PW, 7, 5), 0); // no change, no event
        EXPECT_EQ(alarm_raise_alarm(OBJ_PWE, 7, 0, 0), KV_OK);
    });
    EXPECT_EQ(subscriber.end(), 0);
}

TEST_F(SimulatedDevice, NotifiesSixtyFourProcessesOfBothServices)
{
    Signal subscribed;
    std::deque<Process> subscribers;
    for (int i = 0; i < 64; ++i) {
        subscribers.emplace_back(path, [&] {
            static int ended;
            const int reports = pmom_notification_sock();
            EXPECT_EQ(pmom_subscribe([](pmInterval) { ++ended; }), KV_OK) << kv_sim_error();
            const int alarms = subscribeToAlarms();
            subscribed.send();
            takeEvents(alarms, 1);
            while (ended == 0 && isReadable(reports, 30000))
                EXPECT_EQ(pmom_process_notification(), KV_OK);
            EXPECT_EQ(ended, 1);
        });
        subscribed.wait();
    }
    run(path, [] {
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PDH, 1, 1), 0);
        EXPECT_EQ(kv_sim_interval_end(1), 0);
    });
    for (Process &subscriber : subscribers)
        EXPECT_EQ(subscriber.end(), 0);
}

TEST_F(SimulatedDevice, LeavesNoEventWithoutItsWakeUp)
{
    Signal subscribed;
    Process subscriber{path, [&] {
                           kv_sim_clock_stop(1);
                           pmom_notification_sock();
                           pmom_subscribe([](pmInterval) {});
                           const int descriptor = subscribeToAlarms();
                           subscribed.send();
                           takeEvents(descriptor, 1);
                           EXPECT_EQ(events[0].status, 2U);
                           EXPECT_EQ(pending(), 0U);
                       }};
    subscribed.wait();
    run(path, [] {
        EXPECT_EQ(kv_sim_open(), 0);
        rlimit usual;
        getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit none{0, usual.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PDH, 1, 1), -1);
        EXPECT_NE(strstr(kv_sim_error(), "can't be notified: Too many open files"), nullptr)
            << kv_sim_error();
        EXPECT_EQ(alarm_raise_alarm(OBJ_PDH, 1, 0, 1), 1U);
        EXPECT_EQ(alarm_set_status_bits(OBJ_PDH, 1, 1), 1U);
        EXPECT_EQ(kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1), -1);
        EXPECT_EQ(kv_sim_interval_end(1), -1);
        EXPECT_EQ(kv_sim_clock_advance(900 * SECOND), -1);
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
        uint32_t bits = 1;
        EXPECT_EQ(kv_sim_alarm_get(KV_SIM_PDH, 1, &bits), 0);
        EXPECT_EQ(bits, 0U);
        pdhPmStat stat;
        EXPECT_EQ(pmom_pdh_pm_stat_get(1, pmInterval{1}, 1, &stat), KV_NO_COUNTERS);
        EXPECT_EQ(pending(), 0U);
        EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PDH, 1, 2), 0);
    });
    EXPECT_EQ(subscriber.end(), 0);
}

TEST_F(SimulatedDevice, SendsAnEventForTheAlarmsOfWhatGoes)
{
    run("", [] {
        const int descriptor = subscribeToAlarms();
        createPwe(VEXO_PWE_TYPE_TDM_1, 7);
        createPwe(VEXO_PWE_TYPE_TDM_1, 8);
        createGroup(1, {5});
        const std::vector<std::pair<uint32_t, uint32_t>> objects = {
            {OBJ_PWE, 7},  {OBJ_IMA_GROUP, 1}, {OBJ_SYSTEM, 1},
            {OBJ_PDH, 16}, {OBJ_PWE, 8},       {OBJ_IMA_LINK, 5}};
        for (const auto &[type, number] : objects)
            EXPECT_EQ(kv_sim_alarm_set(type, number, 3), 0);
        takeEvents(descriptor, objects.size());
        events.clear();
        EXPECT_EQ(config_del_pw(7), KV_OK);
        EXPECT_EQ(config_del_ima(1), KV_OK);
        takeEvents(descriptor, 2);
        EXPECT_EQ(kv_sim_reset(), 0);
        takeEvents(descriptor, objects.size());
        for (size_t i = 0; i < objects.size(); ++i) {
            EXPECT_EQ(events[i].objType, objects[i].first) << i;
            EXPECT_EQ(events[i].objId, objects[i].second) << i;
            EXPECT_EQ(events[i].status, 0U) << i;
            EXPECT_EQ(events[i].delta, 3U) << i;
        }
        EXPECT_FALSE(isReadable(descriptor, 0));
    });
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

TEST_F(SimulatedDevice, IsRefusedWhileAStoppedProcessHoldsItAndLosesNoEventByThat)
{
    Process busy{path, [] {
                     alarm(0);
                     for (;;)
                         kv_sim_reset();
                 }};
    static pid_t holder;
    holder = busy.id();
    run(path, [] {
        const int descriptor = alarm_notification_sock();
        // Sooner or later it is stopped while it holds the device.
        EXPECT_EQ(alarm_subscribe(0, 0,
                                  [](const alarmEvent *event) {
                                      events.push_back(*event);
                                      if (events.size() == 1)
                                          ::kill(holder, SIGSTOP);
                                  }),
                  KV_OK);
        kvRc code = KV_OK;
        while (code == KV_OK) {
            EXPECT_EQ(kv_sim_alarm_burst(KV_SIM_PDH, 1, 1, 1, 2, 0), 0);
            events.clear();
            code = alarm_process_notification();
            ::kill(holder, SIGCONT);
        }
        EXPECT_EQ(code, 1U);
        EXPECT_EQ(config_get_error_string(),
                  "process " + std::to_string(holder) +
                      " has held the device for 5 seconds; is it stopped?");
        EXPECT_EQ(events.size(), 1U);
        EXPECT_TRUE(isReadable(descriptor, 0));
        EXPECT_EQ(alarm_process_notification(), KV_OK);
        EXPECT_EQ(events.size(), 2U);
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

namespace
{

// A clock that went on by some seconds, of which the test itself may have taken a minute.
void expectPassed(uint64_t before, uint64_t seconds)
{
    const uint64_t passed = kv_sim_clock_get() - before;
    EXPECT_GE(passed, seconds * SECOND);
    EXPECT_LT(passed, (seconds + 60) * SECOND);
}

} // namespace

TEST_F(SimulatedDevice, HasAClockThatRunsWhateverBecomesOfTheHostsTimeOfDay)
{
    for (const std::string &device : {path, std::string{}})
        run(device, [] {
            const uint64_t start = kv_sim_clock_get();
            for (const int64_t step : {-3600, 2 * 86400, 0}) {
                stepped[CLOCK_REALTIME] = step;
                expectPassed(start, 0);
            }
            stepped[CLOCK_MONOTONIC] = 1000;
            expectPassed(start, 1000);
        });
}

TEST_F(SimulatedDevice, GoesOnFromWhereItsClockWasSeenLastWhenTheHostWasRestarted)
{
    const uint64_t start = 1000000000 * SECOND;
    run(path, [=] {
        stepped[CLOCK_MONOTONIC] = 1000;
        EXPECT_EQ(kv_sim_clock_set(start), 0);
    });
    run(path, [=] { // unused meanwhile
        stepped[CLOCK_MONOTONIC] = 3000;
        expectPassed(start, 2000);
    });
    timespec up;
    clock_gettime(CLOCK_MONOTONIC, &up);
    std::string boot = contents("/proc/sys/kernel/random/boot_id");
    boot.pop_back();
    for (const int64_t step : {int64_t{86400}, -int64_t{up.tv_sec}}) {
        std::string device = contents(path);
        size_t found = 0;
        for (size_t at; (at = device.find(boot)) != std::string::npos; ++found)
            device[at] = 'x';
        ASSERT_GT(found, 0U);
        write(path, device);
        run(path, [=] {
            stepped[CLOCK_MONOTONIC] = step;
            expectPassed(start, 2000);
            stepped[CLOCK_MONOTONIC] += 1000;
            expectPassed(start, 3000);
            kv_sim_clock_set(start + 2000 * SECOND);
        });
    }
}

TEST_F(SimulatedDevice, EndsEveryIntervalThatPassedWhileNobodyLooked)
{
    run("", [] {
        const auto counted = [](uint32_t which, uint32_t port = 1) {
            pdhPmStat stat{};
            EXPECT_EQ(pmom_pdh_pm_stat_get(port, pmInterval{1}, which, &stat), KV_OK);
            return stat.line[0];
        };
        const kvSimRate everySecond{.type = KV_SIM_PDH,
                                    .number = 2,
                                    .om = 0,
                                    .counter = 1,
                                    .amount = 1,
                                    .milliseconds = 1000,
                                    .burst = 0};
        const struct {
            int64_t seconds;
            uint32_t running, ended;           // of what was counted before
            uint32_t grownRunning, grownEnded; // second by second
        } rows[] = {{800, 42, 0, 800, 0},
                    {900, 0, 42, 0, 900},
                    {1800, 0, 0, 0, 900},
                    {2800, 0, 0, 100, 900},
                    {86400, 0, 0, 0, 900}};
        for (const auto &[seconds, running, ended, grownRunning, grownEnded] : rows) {
            kv_sim_reset();
            kv_sim_interval_end(1);
            kv_sim_clock_set(1800000 * SECOND);
            kv_sim_pm_set(KV_SIM_PDH, 1, 1, 1, 42);
            EXPECT_EQ(config_set_pdh_admin(adminStatus{2}, 2), KV_OK);
            EXPECT_EQ(kv_sim_rate_set(&everySecond), 0);
            stepped[CLOCK_MONOTONIC] += seconds;
            EXPECT_EQ(counted(0), running) << seconds;
            EXPECT_EQ(counted(1), ended) << seconds;
            EXPECT_NEAR(counted(0, 2), grownRunning, 60) << seconds;
            EXPECT_NEAR(counted(1, 2), grownEnded, 60) << seconds;
        }
    });
}

TEST_F(SimulatedDevice, OwnsTheClockInWhateverOrderTheLibraryAndItsStandInsAreLoaded)
{
    const auto fileOf = [](auto *function) {
        Dl_info object{};
        EXPECT_TRUE(dladdr(reinterpret_cast<void *>(function), &object));
        return std::filesystem::path{object.dli_fname};
    };
    const auto library = fileOf(vexo_cmi_init);
    const auto libraries = fileOf(config_system_tpid_set).parent_path();
    const auto host = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "notify_host";
    std::string preload;
    for (const char *name : {"alarm", "common", "config", "forker", "pmom", "upgrade"})
        preload += libraries / (std::string{"libkv_"} + name + ".so") += ":";
    for (const auto &[preloaded, order] :
         {std::pair{"", "alone"}, {"", "first"}, {"", "again"}, {preload.c_str(), "alone"}}) {
        SCOPED_TRACE(std::string{order} + " " + preloaded);
        run("", [&, preloaded = preloaded, order = order] {
            setenv("LD_LIBRARY_PATH", libraries.c_str(), 1);
            setenv("LD_PRELOAD", preloaded, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
            execl(host.c_str(), host.c_str(), library.c_str(), "clock", order, nullptr);
            _exit(127);
        });
    }
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

// The rows of describe/meaning.cpp against the device. What it does is told in the rows' words, so
// that a row that says otherwise, and one that is missing here, shows by its name.
class Meanings : public Device
{
  protected:
    using Told = std::map<std::pair<std::string, std::string>, std::string>;

    // One reads, with whatever is needed besides its outputs.
    template <class Value, class Getter, class... Arguments>
    Value read(Getter getter, Arguments... arguments)
    {
        Value value{};
        getter(&value, arguments..., &result);
        EXPECT_OK(result);
        return value;
    }

    vexoOperState stateOfPort()
    {
        return read<vexoPdhParamsOut>(vexo_cmi_pdh_params_get, 1u).operState;
    }

    void setAdmin(uint32_t status)
    {
        vexo_cmi_pdh_admin_set(vexoAdminStatus{status}, 1, &result);
        EXPECT_OK(result);
    }

    // All that the getters tell, without what has the name, as a type, a field or an argument.
    std::map<std::string, std::string> everythingBut(const std::string &of)
    {
        std::map<std::string, std::string> all;
        for (const describe::Operation &operation : describe::operations())
            for (const uint32_t object : {1u, 2u})
                if (std::string_view{operation.name}.ends_with("_get"))
                    add(operation, object, of, all);
        return all;
    }

  private:
    void add(const describe::Operation &operation, uint32_t object, const std::string &of,
             std::map<std::string, std::string> &all)
    {
        std::vector<std::vector<uint32_t>> storage;
        std::vector<void *> arguments;
        for (const describe::Argument &argument : operation.arguments) {
            const bool isOut = argument.direction == describe::Direction::out;
            const bool clears = argument.name == std::string_view{"clear"};
            storage.emplace_back(argument.type->size * argument.count / 4 + 1,
                                 isOut    ? describe::UNTOUCHED
                                 : clears ? 0
                                          : object);
            arguments.push_back(storage.back().data());
        }
        operation.call(arguments.data(), &result);
        for (size_t i = 0; i < storage.size(); ++i)
            for (uint32_t k = 0; k < operation.arguments[i].count; ++k) {
                const describe::Argument &argument = operation.arguments[i];
                const std::string name = operation.name + std::to_string(object) + argument.name;
                const char *bytes = reinterpret_cast<char *>(storage[i].data());
                if (of != argument.name)
                    add(*argument.type, name, bytes + k * argument.type->size, of, all);
            }
    }

    static void add(const describe::Type &type, const std::string &name, const char *bytes,
                    const std::string &of, std::map<std::string, std::string> &all)
    {
        if (of == type.name)
            return;
        if (type.kind != describe::Kind::record)
            all[name] += std::string(bytes, type.size);
        for (const describe::Field &field : type.fields)
            if (of != type.name + std::string{"."} + field.name &&
                !(field.options.when && !field.options.when(bytes)))
                for (uint32_t i = 0; i < field.count; ++i)
                    add(*field.type, name + "." + field.name,
                        bytes + field.offset + i * field.type->size, of, all);
    }
};

TEST_F(Meanings, OfValuesAreThoseThatTheSimulatedDeviceActsBy)
{
    Told told;
    const std::string kept = "kept, without effect";
    kv_sim_clock_stop(1);
    kv_sim_clock_set(1700006400 * 1000000ull); // a day begins
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_ATM_3, 2);
    createGroup(1, {1, 2});

    // A state of neither an up port nor one with an alarm is that of a test.
    setAdmin(1);
    const vexoOperState up = stateOfPort();
    kv_sim_alarm_set(KV_SIM_PDH, 1, 1);
    const vexoOperState down = stateOfPort();
    std::map<uint32_t, std::string> names{{up, "up"}, {down, "down"}};
    for (const uint32_t status : {1u, 2u, 3u}) {
        setAdmin(status);
        kv_sim_alarm_set(KV_SIM_PDH, 1, 0);
        const vexoOperState quiet = stateOfPort();
        names.emplace(quiet, "in test");
        kv_sim_alarm_set(KV_SIM_PDH, 1, 1);
        EXPECT_EQ(stateOfPort(), status == 1 ? down : quiet);
        told[{"vexoAdminStatus", std::to_string(status)}] = names[quiet];
    }
    for (const auto &[state, name] : names)
        told[{"vexoOperState", std::to_string(state)}] = name;
    setAdmin(1);
    kv_sim_alarm_set(KV_SIM_PDH, 1, 0);
    for (const uint32_t loopback : {2u, 3u, 4u, 1u}) {
        vexo_cmi_pdh_lpbk_set(vexoLpbk{loopback}, 1, &result);
        told[{"vexoLpbk", std::to_string(loopback)}] =
            stateOfPort() == up                 ? "no loopback"
            : names[stateOfPort()] == "in test" ? "a loopback, which puts a port that is up in test"
                                                : "";
    }
    for (const uint32_t temperature : {60u, 0u}) {
        uint32_t current, first, second;
        vexo_cmi_sys_temp_set(temperature, temperature, &result);
        vexo_cmi_sys_temp_get(&current, &first, &second, &result);
        told[{"current", std::to_string(current)}] = "the temperature, until it is set";
    }

    // Every bit takes a port, a pseudowire, a group and a link down.
    vexo_cmi_pwe_admin_set(VEXO_ADMIN_STATUS_1, 1, &result);
    uint32_t taken = 0;
    std::set<uint32_t> groupStates, linkStates;
    for (uint32_t bits = 1; bits; bits <<= 1) {
        for (const uint32_t set : {0u, bits}) {
            for (const uint32_t type : {KV_SIM_PDH, KV_SIM_PW, KV_SIM_LINK})
                kv_sim_alarm_set(type, 1, set);
            const auto pw = read<vexoPweParamsInfo>(vexo_cmi_pwe_params_get, 1u);
            taken += (stateOfPort() == down) + (pw.operState == down);
            const auto group = read<vexoImaParams>(vexo_cmi_ima_get, 1u);
            EXPECT_EQ(group.groupState.words[1], set ? 1u : 2u);
            linkStates.insert({group.links[0].words[0], group.links[1].words[0]});
            EXPECT_NE(group.links[0].words[0] == group.links[1].words[0], set != 0);
            kv_sim_alarm_set(KV_SIM_GROUP, 1, set);
            groupStates.insert(read<vexoImaGroupState>(vexo_cmi_ima_group_state_get, 1u).words[0]);
        }
        kv_sim_alarm_set(KV_SIM_GROUP, 1, 0);
    }
    for (const uint32_t type : {KV_SIM_PDH, KV_SIM_PW, KV_SIM_LINK})
        kv_sim_alarm_set(type, 1, 0);
    if (taken == 64)
        told[{"alarmBits", "any bit"}] = "an alarm: the object is down";
    const auto twoStates = [](const std::set<uint32_t> &states) {
        return std::to_string(*states.begin()) + " down, " + std::to_string(*states.rbegin()) +
               " up";
    };
    told[{"vexoImaGroupState.words", "word 0"}] = twoStates(groupStates);
    told[{"vexoImaGroupState.words", "word 1"}] = "how many of its links are up";
    told[{"vexoImaLinkState.words", "word 0"}] = twoStates(linkStates);

    // The system is up whatever there is, unless its state follows.
    const auto system = [&]() -> std::string & {
        const auto state = read<vexoModuleState>(vexo_cmi_sys_oper_state_get);
        return told[{"vexoModuleState", std::to_string(state)}];
    };
    const auto loop = [&](vexoLpbk loopback) { vexo_cmi_misc_sys_lbk_set(loopback, &result); };
    for (const char *follows : {"off", "on"}) {
        kv_sim_set("system-state", follows);
        for (uint32_t bit = 0; bit < 10; ++bit) {
            vexo_cmi_sys_alarm_set(1U << bit, &result);
            system() = "down: system-state is on, and it has an alarm";
        }
        vexo_cmi_sys_alarm_set(0, &result);
        loop(VEXO_LPBK_2);
        system() = "in test: system-state is on, and it has a loopback";
        loop(VEXO_LPBK_1);
        system() = "up";
    }
    kv_sim_set("system-state", "off");

    // Alarms that have a cause: with a setting, and where there is none at once.
    const auto raises = [&](const char *of, uint32_t type, const char *setting, auto cause,
                            const char *meaning) {
        uint32_t before = 0, bits = 0;
        cause(true);
        kv_sim_alarm_get(type, 1, &before);
        EXPECT_EQ(before == 0, setting != nullptr) << meaning;
        EXPECT_EQ(kv_sim_set(setting ? setting : "behaviours", setting ? "on" : "off"), 0);
        kv_sim_alarm_get(type, 1, &bits);
        told[{of, "bit " + std::to_string(std::countr_zero(bits))}] = meaning;
        kv_sim_set("behaviours", "off");
        cause(false);
        kv_sim_alarm_get(type, 1, &bits);
        EXPECT_EQ(bits, 0U) << meaning;
    };
    const auto on = [](bool there) { return there ? VEXO_LPBK_4 : VEXO_LPBK_1; };
    raises(
        "bits", KV_SIM_SYSTEM, "loopback-alarms", [&](bool there) { loop(on(there)); },
        "a loopback, if loopback-alarms is on");
    raises(
        "bits", KV_SIM_SYSTEM, nullptr,
        [&](bool there) {
            vexo_cmi_sys_temp_set(70, 80, &result);
            kv_sim_set("temperature", there ? "70" : "69");
        },
        "the temperature has been set, to the first threshold or above");
    raises(
        "bits", KV_SIM_SYSTEM, nullptr,
        [&](bool there) {
            vexo_cmi_sys_temp_set(80, 70, &result);
            kv_sim_set("temperature", there ? "70" : "69");
        },
        "the temperature has been set, to the second threshold or above");
    raises(
        "alarmBits", KV_SIM_PDH, "loopback-alarms",
        [&](bool there) { vexo_cmi_pdh_lpbk_set(on(there), 1, &result); },
        "of a port: a loopback, if loopback-alarms is on");
    raises(
        "alarmBits", KV_SIM_PDH, nullptr,
        [&](bool there) {
            kv_sim_set("signal.1", there ? "off" : "on");
            setAdmin(1);
        },
        "of a port: it is up without a signal");
    raises(
        "alarmBits", KV_SIM_GROUP, "link-alarms",
        [&](bool there) { kv_sim_set("links-needed.1", there ? "3" : "2"); },
        "of a group: fewer links are up than it needs, if link-alarms is on");
    const auto carry = [&](vexoPweType type, uint32_t pwId, uint32_t circuit, bool exists) {
        vexoPweParams params = newPwe(type);
        params.pweAction = exists ? VEXO_PWE_ACTION_MODIFY : VEXO_PWE_ACTION_CREATE;
        auto &service = params.service;
        (type == 1   ? service.t1.circuit
         : type == 2 ? service.t2.circuit
                     : service.a.circuit) = circuit;
        vexo_cmi_pwe_params_set(&params, pwId, &result);
        EXPECT_OK(result);
    };
    raises(
        "alarmBits", KV_SIM_PW, "circuit-alarms",
        [&](bool there) {
            carry(VEXO_PWE_TYPE_ATM_3, 2, 77, true);
            carry(VEXO_PWE_TYPE_TDM_1, 1, there ? 77 : 78, true);
        },
        "of a pseudowire: another has its circuit, if circuit-alarms is on");
    raises(
        "alarmBits", KV_SIM_PW, "port-alarms",
        [&](bool there) { carry(VEXO_PWE_TYPE_TDM_1, 1, there ? 2 : 17, true); },
        "of a pseudowire: its port isn't up, if port-alarms is on");
    // Which port that is: that of the circuits in use alone is down.
    kv_sim_set("port-alarms", "on");
    setAdmin(2);
    for (const uint32_t type : {1u, 2u, 3u}) {
        uint32_t first = 0, last = 0;
        for (uint32_t circuit = 1; circuit < 30; ++circuit) {
            carry(vexoPweType{type}, 900, circuit, circuit > 1);
            const auto isUp = [&] {
                return read<vexoPweParamsInfo>(vexo_cmi_pwe_params_get, 900u).operState == up;
            };
            const bool without = isUp();
            vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, circuit, &result);
            if (isUp() && !without) {
                first = first ? first : circuit;
                last = circuit;
            }
            vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_2, circuit, &result);
        }
        told[{std::string{"vexoPweService"} +
                  (type == 1   ? "T1"
                   : type == 2 ? "T2"
                               : "A") +
                  ".circuit",
              std::to_string(first) + " to " + std::to_string(last)}] = "the port of this number";
        config_del_pw(900);
    }
    kv_sim_set("port-alarms", "off");
    setAdmin(1);
    carry(VEXO_PWE_TYPE_TDM_1, 1, 0, true);
    carry(VEXO_PWE_TYPE_ATM_3, 2, 0, true);
    vexo_cmi_misc_log_reset(&result);
    uint32_t records = 0;
    while (read<unsigned>(vexo_cmi_sys_alarm_get) == 0 && records < 2000) {
        vexo_cmi_misc_dbg_mode_set(0, &result);
        ++records;
    }
    for (uint32_t bit = 0; bit < 15; ++bit)
        if (read<unsigned>(vexo_cmi_sys_alarm_get) == 1U << bit)
            told[{"bits", "bit " + std::to_string(bit)}] =
                "the log has taken " + std::to_string(records) + " records since it was cleared";

    // An interval's counters are there as long as it runs.
    for (const vexoPmType type : {VEXO_PM_TYPE_1, VEXO_PM_TYPE_2, VEXO_PM_TYPE_3, VEXO_PM_TYPE_4}) {
        const auto counted = [&] {
            vexoPdhPm pm;
            vexo_cmi_pdh_pm_get(&pm, type, 1, &result);
            return pm.lineCounters[0];
        };
        std::string &meaning = told[{"vexoPmType", std::to_string(type)}];
        for (const uint64_t seconds : {900u, 3600u, 86400u, 40 * 86400u}) {
            kv_sim_clock_set(1700006400 * 1000000ull);
            ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, 1, type, 1, 7), 0);
            kv_sim_clock_advance(seconds * 1000000 - 1);
            const bool before = counted() == 7;
            kv_sim_clock_advance(1);
            if (before && counted() == 0)
                meaning = "the running " + std::to_string(seconds) + " seconds";
        }
        if (meaning.empty() && counted() == 7) {
            kv_sim_interval_end(type);
            meaning = counted() == 0 ? "all since it was ended by command" : "";
        }
    }

    // Loads, of which the second fails.
    const auto stateOfLoad = [&] {
        return read<vexoUpgradeInfo>(vexo_cmi_misc_upgrade_info_get).state;
    };
    vexoUpgradeInfo load{};
    load.mode = VEXO_UPGRADE_MODE_1;
    strcpy_n(load.fileName, "file", sizeof load.fileName);
    const auto under = [&](vexoUpgradeState state) -> std::string & {
        return told[{"vexoUpgradeState", std::to_string(state)}];
    };
    vexo_cmi_misc_upgrade_init(&load, &result);
    vexo_cmi_sys_reset(&result);
    const vexoUpgradeState none = stateOfLoad();
    vexo_cmi_misc_upgrade_init(&load, &result);
    for (;;) {
        const vexoUpgradeState state = stateOfLoad();
        kv_sim_clock_advance(5000000 - 1);
        EXPECT_EQ(stateOfLoad(), state);
        kv_sim_clock_advance(1);
        const bool isOver = stateOfLoad() == state;
        under(state) = isOver ? "final: done" : "under way, for 5 seconds";
        if (isOver)
            break;
    }
    kv_sim_upgrade_fail(3);
    vexo_cmi_misc_upgrade_init(&load, &result);
    kv_sim_clock_advance(3600 * 1000000ull);
    under(stateOfLoad()) = "final: failed";
    kv_sim_upgrade_fail(0);
    vexo_cmi_sys_reset(&result);
    kv_sim_clock_advance(3600 * 1000000ull);
    under(stateOfLoad()) = "none was begun since the device was reset or shut down";
    EXPECT_EQ(stateOfLoad(), none);
    kv_sim_reset();
    EXPECT_EQ(stateOfLoad(), none);
    kv_sim_clock_stop(1);
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_ATM_3, 2);
    createGroup(1, {1, 2});
    const auto debugging = [&] {
        return std::to_string(read<vexoDebugInfo>(vexo_cmi_misc_dbg_info_get).state);
    };
    told[{"vexoDebugState", debugging()}] = "no text has been set";
    vexo_cmi_misc_dbg_init("a text", &result);
    told[{"vexoDebugState", debugging()}] = "a text has been set";

    // The test pattern generator.
    const auto pattern = [&] {
        vexoTpgmStatus status;
        vexo_cmi_misc_tpgm_stat_get(&status, 0, &result);
        return std::vector<uint32_t>(std::begin(status.words), std::end(status.words));
    };
    EXPECT_EQ(pattern()[0], 0u);
    vexo_cmi_misc_tpgm_init(71, 72, 73, &result);
    kv_sim_clock_advance(5000 * 1000000ull);
    const std::vector<uint32_t> sent = pattern();
    if (sent[0] == 1)
        told[{"vexoTpgmStatus.words", "word 0"}] = "1 when it was set up";
    if (std::vector<uint32_t>(sent.begin() + 1, sent.begin() + 4) ==
        std::vector<uint32_t>{71, 72, 73})
        told[{"vexoTpgmStatus.words", "words 1 to 3"}] = "the parameters";
    if (sent[4] == 5000)
        told[{"vexoTpgmStatus.words", "word 4"}] = "seconds since it was set up or cleared";
    told[{"vexoTpgmStatus.words", "words 5 and 6"}] =
        std::to_string((static_cast<uint64_t>(sent[6]) << 32 | sent[5]) / 5000) +
        " bits for each of them, low half first";

    // What a pseudowire of each type gets when it is created without sizes.
    for (const uint32_t type : {1u, 2u, 3u, 4u}) {
        createPwe(vexoPweType{type}, 10 + type);
        const auto info = read<vexoPweParamsInfo>(vexo_cmi_pwe_params_get, 10 + type);
        const auto &service = info.service;
        const auto sizes = [](uint32_t payload, uint32_t buffer) {
            return "if no sizes are given, " + std::to_string(payload) + " of payload, " +
                   std::to_string(buffer) + " of jitter buffer";
        };
        told[{"vexoPweType", std::to_string(type)}] =
            type == 1 ? sizes(service.t1.payloadSize, service.t1.jitterBufferSize)
            : type == 2
                ? sizes(service.t2.payloadSize, service.t2.jitterBufferSize)
                : "if no size is given, " + std::to_string(service.a.payloadSize) + " of payload";
    }

    // What is set and changes nothing else that can be read.
    const auto setPort = [&](auto change) {
        const auto now = read<vexoPdhParamsOut>(vexo_cmi_pdh_params_get, 1u);
        vexoPdhParamsIn in{now.adminStatus, now.frameMode, now.lineCode, now.cableLength,
                           now.syncMode,    now.syncParam, now.niuMode,  now.auxParam};
        change(in);
        vexo_cmi_pdh_params_set(&in, 1, &result);
    };
    const auto setAtm = [&](auto change) {
        vexoPweParams params = newPwe(VEXO_PWE_TYPE_ATM_3);
        params.pweAction = VEXO_PWE_ACTION_MODIFY;
        change(params.service.a);
        vexo_cmi_pwe_params_set(&params, 2, &result);
    };
    const auto setPsn = [&](vexoPwePsnType type, auto change) {
        vexoPwePsn psn{};
        psn.psnType = type;
        psn.udpMode = vexoPweUdpMode{type == VEXO_PWE_PSN_TYPE_3};
        change(psn);
        vexo_cmi_pwe_psn_set(&psn, 1, &result);
    };
    const auto connect =
        [&, present = vexoPweAtmXc{VEXO_PWE_ATM_XC_TYPE_1, 1, 2, 3, 4}](uint32_t type) mutable {
            vexo_cmi_pwe_atmop_xc_delete(&present, 2, &result);
            present.xcType = vexoPweAtmXcType{type};
            vexo_cmi_pwe_atmop_xc_set(&present, 2, &result);
        };
    const auto upgrade = [&](uint32_t mode) {
        load.mode = vexoUpgradeMode{mode};
        vexo_cmi_sys_reset(&result);
        vexo_cmi_misc_upgrade_init(&load, &result);
    };
    const struct {
        const char *of;
        std::vector<uint32_t> values;
        std::function<void(uint32_t)> set;
    } rows[] = {
        {"vexoTdmMode",
         {1, 2, 3},
         [&](auto v) { vexo_cmi_sys_tdm_mode_set(vexoTdmMode{v}, &result); }},
        {"vexoNetQuality",
         {1, 2},
         [&](auto v) { vexo_cmi_sys_net_type_set(vexoNetQuality{v}, &result); }},
        {"vexoAlarmMode",
         {1, 2},
         [&](auto v) { vexo_cmi_sys_rpt_mode_set(vexoAlarmMode{v}, 0, &result); }},
        {"bits", {1, 2, 0x1000, 0x4000}, [&](auto v) { vexo_cmi_sys_alarm_set(v, &result); }},
        {"vexoPdhFrameMode",
         {1, 2, 3, 4, 5, 6},
         [&](auto v) { setPort([&](auto &port) { port.frameMode = vexoPdhFrameMode{v}; }); }},
        {"vexoPdhCode",
         {1, 2, 3, 4},
         [&](auto v) { setPort([&](auto &port) { port.lineCode = vexoPdhCode{v}; }); }},
        {"vexoPdhNiuMode",
         {1, 2, 3, 4},
         [&](auto v) { setPort([&](auto &port) { port.niuMode = vexoPdhNiuMode{v}; }); }},
        {"vexoPdhSyncMode",
         {1, 2, 3, 4, 5},
         [&](auto v) { setPort([&](auto &port) { port.syncMode = vexoPdhSyncMode{v}; }); }},
        {"vexoAtmMode",
         {1, 2},
         [&](auto v) { setAtm([&](auto &service) { service.atmMode = vexoAtmMode{v}; }); }},
        {"vexoAtmType",
         {1, 2},
         [&](auto v) { setAtm([&](auto &service) { service.atmType = vexoAtmType{v}; }); }},
        {"vexoAtmClpMode",
         {1, 2, 3, 4},
         [&](auto v) { setAtm([&](auto &service) { service.atmClpMode = vexoAtmClpMode{v}; }); }},
        {"vexoPweAtmXcType", {1, 2, 3}, connect},
        {"vexoUpgradeMode", {1, 2}, upgrade},
        {"vexoPweUdpMode",
         {1, 2, 3},
         [&](auto v) {
             setPsn(VEXO_PWE_PSN_TYPE_3, [&](auto &psn) { psn.udpMode = vexoPweUdpMode{v}; });
         }},
        {"vexoPwePsn.param1",
         {0, 1, 0xFFFFFFFF},
         [&](auto v) {
             setPsn(VEXO_PWE_PSN_TYPE_2, [&](auto &psn) { psn.param1 = v, psn.param1Valid = 1; });
         }},
        {"vexoPwePsn.param2",
         {0, 1, 0xFFFFFFFF},
         [&](auto v) {
             setPsn(VEXO_PWE_PSN_TYPE_2, [&](auto &psn) { psn.param2 = v, psn.param2Valid = 1; });
         }},
        {"vexoPwePsn.param3",
         {0, 1, 0xFF},
         [&](auto v) {
             setPsn(VEXO_PWE_PSN_TYPE_1, [&](auto &psn) { psn.param3 = v, psn.param3Valid = 1; });
         }},
        {"vexoPwePsn.param4",
         {0, 1, 0xFF},
         [&](auto v) {
             setPsn(VEXO_PWE_PSN_TYPE_1, [&](auto &psn) { psn.param4 = v, psn.param4Valid = 1; });
         }},
    };
    for (const auto &row : rows) {
        row.set(row.values.front());
        const auto before = everythingBut(row.of);
        std::set<std::map<std::string, std::string>> states;
        for (const uint32_t value : row.values) {
            row.set(value);
            ASSERT_OK(result) << row.of;
            EXPECT_EQ(everythingBut(row.of), before) << row.of << " " << value;
            states.insert(everythingBut(""));
        }
        if (states.size() == row.values.size())
            told[{row.of, row.of == std::string{"bits"} ? "other bits" : "any"}] = kept;
    }

    for (const describe::Meaning &row : describe::meanings()) {
        const auto found = told.extract({std::string{row.of}, std::string{row.value}});
        const std::string_view otherwise =
            row.meaning == describe::NEVER ? describe::NEVER : "not shown by the device";
        EXPECT_EQ(row.meaning, found ? found.mapped() : otherwise) << row.of << " " << row.value;
    }
    EXPECT_EQ(told, Told{}) << "not in the table";
}
