/* What the library wants of its host, where that is Python. */
#include <vexo_cmi.h>

#include <stdio.h>

int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, (size_t)size, "python3-vexo-cmi %d.%d.%d", VEXO_CMI_VERSION_MAJOR,
                    VEXO_CMI_VERSION_MINOR, VEXO_CMI_VERSION_PATCH);
}
