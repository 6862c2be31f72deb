#include "lumo/corefiles.h"

#include <cstdio>

// Paths are UTF-8 byte strings on this platform, so they pass through as they are.

UTF8InputFileStream::UTF8InputFileStream(const char* utf8Path, std::ios_base::openmode mode)
{
    open(utf8Path, mode);
}

void UTF8InputFileStream::open(const char* utf8Path, std::ios_base::openmode mode)
{
    if (utf8Path)
        std::ifstream::open(utf8Path, mode);
    else
        setstate(std::ios_base::failbit);
}

UTF8OutputFileStream::UTF8OutputFileStream(const char* utf8Path, std::ios_base::openmode mode)
{
    open(utf8Path, mode);
}

void UTF8OutputFileStream::open(const char* utf8Path, std::ios_base::openmode mode)
{
    if (utf8Path)
        std::ofstream::open(utf8Path, mode);
    else
        setstate(std::ios_base::failbit);
}

bool delete_file_utf8(const char* utf8Path)
{
    return utf8Path != nullptr && std::remove(utf8Path) == 0;
}
