#pragma once

#include <QString>

namespace Tessel {

// One named setting. The value is always kept as text; the owning Options set
// converts it on demand.
class Option
{
public:
    Option(const QString& name, const QString& value, const QString& tip);

    const QString& get_name() const { return m_name; }
    const QString& get_value() const { return m_value; }
    // One-line help for the settings dialog; empty for most options.
    const QString& get_tip() const { return m_tip; }

    void set_name(const QString& name) { m_name = name; }
    void set_value(const QString& value) { m_value = value; }
    void set_tip(const QString& tip) { m_tip = tip; }

private:
    QString m_name;
    QString m_value;
    QString m_tip;
};

} // namespace Tessel
