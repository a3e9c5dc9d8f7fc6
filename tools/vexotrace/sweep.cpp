#include "commands.h"

#include <filesystem>

namespace vexotrace
{

int sweep(const std::vector<std::string> &words)
{
    const std::string program = beside({SWEEPERS}), simulator = beside({SIMULATORS});
    if (program.empty() || simulator.empty())
        throw UsageError("sweep: the simulated device isn't installed, on which agents are swept");
    // Whatever other platform there is: faults are for the simulated one.
    prepend("LD_LIBRARY_PATH", std::filesystem::path{simulator}.parent_path());
    std::vector<std::string> command{program, recorder()};
    command.insert(command.end(), words.begin(), words.end());
    return become(command);
}

} // namespace vexotrace
