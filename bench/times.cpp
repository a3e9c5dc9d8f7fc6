// The time of every operation by hand and through the library, and of some while another core makes
// PM reports without end.
#include "operations.h"

#include "bare.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <string>
#include <string_view>

#include <unistd.h>

using namespace bench;

namespace
{

std::atomic<bool> reporting;
std::atomic<unsigned> reports;

// Every report asks for the next one.
void onPm(vexoPmNotification *pm)
{
    if (pm->objType != VEXO_OBJ_TYPE_PDH)
        return;
    ++reports;
    if (reporting)
        barePmSend(pmInterval{1});
}

void startReports(const benchmark::State &)
{
    vexo_cmi_pm_callback_register(onPm);
    while (!barePmSubscribed())
        usleep(1000);
    reporting = true;
    barePmSend(pmInterval{1});
    for (const unsigned before = reports; reports == before;)
        usleep(1000);
}

void stopReports(const benchmark::State &)
{
    reporting = false;
    vexo_cmi_pm_callback_unregister();
}

void run(benchmark::State &state, void (*operation)())
{
    for (auto _ : state)
        operation();
}

// What shares no memory with a report but for the platform's code: the records that it reads are
// not those that a report reads.
bool isApart(std::string_view name)
{
    return name == "pdh_admin_set" || name == "pdh_code_set" || name == "pdh_params_get" ||
           name == "sys_src_ip_get";
}

void add(const std::string &name, void (*operation)())
{
    benchmark::RegisterBenchmark(name.c_str(), run, operation);
}

} // namespace

int main(int argc, char **argv)
{
    setUp();
    for (const Operation &operation : operations()) {
        const std::string name = nameOf(operation);
        add("library/" + name, operation.library);
        add("bare/" + name, operation.bare.run);
        if (!isApart(operation.name))
            continue;
        add("alone/" + name, operation.library);
        benchmark::RegisterBenchmark(("beside/" + name).c_str(), run, operation.library)
            ->Setup(startReports)
            ->Teardown(stopReports);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
