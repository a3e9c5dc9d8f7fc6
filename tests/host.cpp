// What the library takes from its host.
#include <vexo_cmi.h>

#include <cstdio>

int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "test host 1.0");
}
