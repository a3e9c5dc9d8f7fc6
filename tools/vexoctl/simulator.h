// The simulated device's control interface, looked up when the program runs: with the real platform
// libraries there is nothing to be found.
#ifndef VEXOCTL_SIMULATOR_H
#define VEXOCTL_SIMULATOR_H

#include <kv_sim.h>

#include <dlfcn.h>

namespace vexoctl
{

template <class Function>
Function *lookUp(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_DEFAULT, name));
}

} // namespace vexoctl

#define SIM(function) vexoctl::lookUp<decltype(function)>(#function)

#endif
