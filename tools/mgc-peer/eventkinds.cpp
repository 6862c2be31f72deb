#include "eventkinds.h"

#include <charconv>
#include <climits>
#include <iterator>

#include <strings.h>

namespace EventKinds {
namespace {

struct Kind
{
    int value;
    const char* name;
};

// The gaps (no 70, nothing from 101 to 199) are the protocol's.
constexpr Kind kKinds[] = {
    {0, "eSys_OnUndef"},
    {10, "eSys_Info"},
    {20, "eSys_Answer"},
    {30, "eSys_OnClose"},
    {40, "eSys_Connect"},
    {50, "eSys_Disconnect"},
    {60, "eSys_Exit"},
    {80, "eSys_Internal"},
    {90, "eSys_TuneOpt"},
    {100, "eSys_TuneOptRsvS"},
    {200, "eSys_TuneOptRsvE"},
    {201, "eApp_OnStart"},
    {202, "eApp_OnOpenDocument"},
    {203, "eApp_OnCloseDocument"},
    {204, "eApp_OnQuit"},
    {205, "eDoc_Modify"},
    {206, "eDoc_OnSelectionChange"},
    {207, "eDoc_OnDatabaseChanged"},
    {208, "eDoc_OnChange"},
    {209, "eDoc_Change"},
    {210, "eDoc_OnPropertyChange"},
    {211, "eDoc_OnPreClose"},
    {212, "eDoc_LUMONetList"},
    {213, "eDoc_FathomData"},
    {214, "eDoc_BRIOScript"},
    {215, "eDoc_VBScript"},
    {216, "eDoc_ANF"},
    {217, "eDoc_LibCategories"},
    {218, "eDoc_LibElements"},
    {219, "eDoc_LibElemSymbols"},
    {220, "eDoc_LibElemParams"},
    {221, "eDoc_LibElemMacro"},
    {222, "eDoc_LibIFF"},
    {223, "eDoc_Lib"},
    {224, "eDoc_UserDefined"},
    {225, "eDoc_Synthesize"},
    {226, "eDoc_libExecuteMacro"},
    {227, "eDoc_CrossProbe"},
    {228, "eDoc_Binary"},
    {229, "e_Doc_Analysis"},
};

} // namespace

std::string nameOf(int kind)
{
    for (const Kind& entry : kKinds)
        if (entry.value == kind)
            return entry.name;
    return "unknown event type";
}

std::optional<int> parse(const std::string& text)
{
    int value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (!text.empty() && result.ec == std::errc() && result.ptr == end)
        return value;
    for (const Kind& entry : kKinds)
        if (::strcasecmp(entry.name, text.c_str()) == 0)
            return entry.value;
    return std::nullopt;
}

} // namespace EventKinds
