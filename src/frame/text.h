// Texts in fields of records.
#ifndef FRAME_TEXT_H
#define FRAME_TEXT_H

#include <stddef.h>
#include <string.h>

namespace frame
{

// What strcpy_n() does, for a text in a record: as many bytes as the field has can be read there,
// however short the text is, so all are copied at once, and those behind the text cleared.
template <size_t Size>
void copyText(char (&field)[Size], const char *text)
{
    memcpy(field, text, Size);
    field[Size - 1] = '\0';
    const size_t length = strlen(field);
    memset(field + length, '\0', Size - length);
}

} // namespace frame

#endif
