// Texts that are copied into a field.
#ifndef FRAME_TEXT_H
#define FRAME_TEXT_H

#include <stddef.h>
#include <string.h>

namespace frame
{

// With a NUL at the end: what does not fit is cut, what is left over is filled with NULs.
inline void copyText(char *field, const char *text, size_t size)
{
    strncpy(field, text, size - 1);
    field[size - 1] = '\0';
}

} // namespace frame

#endif
