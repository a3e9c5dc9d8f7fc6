// Processes that each use a simulated device, so that the test itself never does.
#ifndef TESTS_SIM_DEVICE_H
#define TESTS_SIM_DEVICE_H

#include "device.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using std::chrono::milliseconds;
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
    pid_t id() const { return id_; }
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

inline kvSimFault faultOf(const char *function, uint32_t effect, uint32_t value, uint32_t times = 0)
{
    kvSimFault fault{};
    snprintf(fault.function, sizeof fault.function, "%s", function);
    fault.times = times;
    fault.effect = effect;
    fault.value = value;
    return fault;
}

// Parameters that the device accepts, full of a number.
inline pdhParams portOf(uint32_t n)
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

#endif
