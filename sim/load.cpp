// Part of every stand-in: whichever of them comes with the library, what the library calls is right
// before anything is called.
#include "rebind.h"

__attribute__((constructor)) static void load()
{
    sim::bindLibrary();
}
