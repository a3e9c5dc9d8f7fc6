/* A host in plain C. */
#include <vexo_cmi.h>

#include <stdio.h>
#include <string.h>

int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, (size_t)size, "consumer 1.0");
}

static int failed(const char *what, const vexoResult *result)
{
    if (result->rc != VEXO_RC_OK)
        printf("%s: %s\n", what, result->message);
    return result->rc != VEXO_RC_OK;
}

int main(void)
{
    static vexoSwVersion version;
    vexoResult result;
    unsigned address = 0;

    fputs("begun\n", stderr);
    vexo_cmi_sys_src_ip_set(0x0A000001, &result);
    if (failed("src_ip_set", &result))
        return 1;
    vexo_cmi_sys_src_ip_get(&address, &result);
    if (failed("src_ip_get", &result))
        return 1;
    vexo_cmi_sys_version_get(&version, &result);
    if (failed("version_get", &result))
        return 1;
    return address != 0x0A000001 || strcmp(version.text[VEXO_SW_VERSION_GORV], "consumer 1.0") != 0;
}
