#include "options/option.h"

namespace Tessel {

Option::Option(const QString& name, const QString& value, const QString& tip)
    : m_name(name), m_value(value), m_tip(tip)
{
}

} // namespace Tessel
