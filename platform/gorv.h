// What the hosting software provides to the library.
#ifndef GORV_H
#define GORV_H

extern "C" {
// Writes the version text of the gorv component, terminated, into buffer of size bytes.
int gorvGetVersion(char *buffer, int size);
}

#endif
