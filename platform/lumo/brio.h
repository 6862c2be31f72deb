#pragma once
// The host's script interface (BRIO) as a plug-in sees it.

#include <cstdint>

#include "lumo/lumoexport.h"

// Opaque host value: a script argument, a variable's value, or a command's result.
struct BRIOValueS;
using BRIOValueHandle = BRIOValueS*;
using BRIOTypeCode = int;

// A script command: reads its arguments through the interface and returns what
// return_integer returned, or null for "no value".
using BRIOCommandFunction = BRIOValueHandle (*)();

// One row of a command table: seven 64-bit words, as the host reads them.
struct BRIOCommandRow
{
    const char* name;
    std::uint64_t reserved0;
    BRIOCommandFunction function;
    std::uint64_t reserved1;
    std::uint64_t reserved2;
    std::uint64_t reserved3;
    std::uint64_t reserved4;
};

// The block handed to register_library.
struct BRIOLibraryBlock
{
    const char* libraryName;
    const char* interfaceName;
    BRIOCommandRow* commands;
    std::uint64_t commandCount;
};

// The host's script interface. Implemented by the host; every operation must
// be called on the host's main thread unless the host says otherwise.
class LUMO_SDK_EXPORT BRIOInterface
{
public:
    virtual int interface_version() = 0;
    // True and a new handle in *value when argument `index` (0-based) of the
    // running command can be delivered as `type`.
    virtual bool get_argument(int index, BRIOTypeCode type, BRIOValueHandle* value) = 0;
    virtual BRIOTypeCode argument_type(int index) = 0;
    virtual bool register_library(std::uint64_t zero1, std::uint64_t zero2, std::uint64_t zero3,
                                  int one, BRIOLibraryBlock* block) = 0;
    virtual bool evaluate_text(const char* vocabulary, const char* text) = 0;
    virtual void free_value(BRIOValueHandle value) = 0;
    // A string's characters (NUL-terminated) or a pointer to an integer's int32.
    virtual void* value_data(BRIOValueHandle value) = 0;
    virtual BRIOTypeCode string_type() = 0;
    virtual BRIOTypeCode integer_type() = 0;
    virtual BRIOValueHandle return_integer(int value) = 0;
    // A new handle (release with free_value), or null when the variable is unset.
    virtual BRIOValueHandle find_variable(const char* vocabulary, const char* name) = 0;

protected:
    ~BRIOInterface() = default;
};
