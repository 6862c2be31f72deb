#include "plugin/commandarguments.h"

namespace CommandArguments {

bool allStrings(BRIOInterface& brio, int count)
{
    for (int index = 0; index < count; ++index)
        if (brio.argument_type(index) != brio.string_type())
            return false;
    return true;
}

const char* fetchString(BRIOInterface& brio, int index, BRIOValueHandle& handle)
{
    handle = nullptr;
    if (!brio.get_argument(index, brio.string_type(), &handle) || !handle) {
        handle = nullptr;
        return nullptr;
    }
    return static_cast<const char*>(brio.value_data(handle));
}

void release(BRIOInterface& brio, BRIOValueHandle handle)
{
    if (handle)
        brio.free_value(handle);
}

} // namespace CommandArguments
