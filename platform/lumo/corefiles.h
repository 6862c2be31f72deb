#pragma once
// The host core library's files, named by UTF-8 paths.

#include <fstream>

#include "lumo/lumoexport.h"

class LUMO_SDK_EXPORT UTF8InputFileStream : public std::ifstream
{
public:
    UTF8InputFileStream() = default;
    explicit UTF8InputFileStream(const char* utf8Path,
                                 std::ios_base::openmode mode = std::ios_base::in);
    void open(const char* utf8Path, std::ios_base::openmode mode = std::ios_base::in);
};

class LUMO_SDK_EXPORT UTF8OutputFileStream : public std::ofstream
{
public:
    UTF8OutputFileStream() = default;
    explicit UTF8OutputFileStream(const char* utf8Path,
                                  std::ios_base::openmode mode = std::ios_base::out |
                                                                 std::ios_base::trunc);
    void open(const char* utf8Path,
              std::ios_base::openmode mode = std::ios_base::out | std::ios_base::trunc);
};

// True when the file named by the UTF-8 path was deleted.
LUMO_SDK_EXPORT bool delete_file_utf8(const char* utf8Path);
