// Part of every stand-in: whichever of them comes with the library, its clock is the device's
// before anything is called.
#include "clock.h"

__attribute__((constructor)) static void load()
{
    sim::bindClock();
}
