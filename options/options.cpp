#include "options/options.h"

#include <QDomDocument>
#include <QDomDocumentFragment>
#include <QDomElement>
#include <QDomNodeList>
#include <QHash>

#include "options/option.h"
#include "options/optionnames.h"

namespace Tessel {

Options::~Options()
{
    clear_options();
}

int Options::get_option_index(const QString& name) const
{
    for (std::size_t index = 0; index < m_options.size(); ++index) {
        if (m_options[index]->get_name() == name)
            return static_cast<int>(index);
    }
    return -1;
}

void Options::set_option(const QString& name, const QString& value, const QString& tip)
{
    const int index = get_option_index(name);
    if (index < 0) {
        m_options.push_back(new Option(name, value, tip));
        return;
    }
    Option* option = m_options[static_cast<std::size_t>(index)];
    option->set_value(value);
    option->set_tip(tip);
}

QString Options::get_option_value(const QString& name) const
{
    const int index = get_option_index(name);
    return index < 0 ? QString() : m_options[static_cast<std::size_t>(index)]->get_value();
}

QString Options::get_option_tip(const QString& name) const
{
    const int index = get_option_index(name);
    return index < 0 ? QString() : m_options[static_cast<std::size_t>(index)]->get_tip();
}

bool Options::get_bool_option_value(const QString& name) const
{
    const QString value = get_option_value(name);
    return value.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

int Options::get_int_option_value(const QString& name) const
{
    const QString value = get_option_value(name);
    // QString's own conversions always use the C locale; a failed one gives 0.
    return value.toInt(nullptr, 10);
}

double Options::get_double_option_value(const QString& name) const
{
    const QString value = get_option_value(name);
    return value.toDouble();
}

void Options::clear_options()
{
    for (Option* option : m_options)
        delete option;
    m_options.clear();
}

QDomDocumentFragment Options::get_xml_frag(QDomDocument& document, const QString& tag) const
{
    QDomDocumentFragment fragment = document.createDocumentFragment();
    QDomElement group = document.createElement(tag);
    fragment.appendChild(group);
    for (const Option* option : m_options) {
        QDomElement element = document.createElement(QLatin1String(OptionName::OptionElement));
        element.setAttribute(QLatin1String(OptionName::ValueAttribute), option->get_value());
        element.setAttribute(QLatin1String(OptionName::NameAttribute), option->get_name());
        element.setAttribute(QLatin1String(OptionName::TipAttribute), option->get_tip());
        group.appendChild(element);
    }
    return fragment;
}

void Options::load_from_dom(const QDomDocument& document, const QString& tag)
{
    clear_options();
    const QDomElement group = document.elementsByTagName(tag).item(0).toElement();
    if (group.isNull())
        return;
    // The rule of set_option, with an index of the names met so far: a file
    // of many records must not make loading quadratic.
    QHash<QString, std::size_t> positions;
    const QString optionTag = QLatin1String(OptionName::OptionElement);
    for (QDomElement element = group.firstChildElement(optionTag); !element.isNull();
         element = element.nextSiblingElement(optionTag)) {
        const QString name = element.attribute(QLatin1String(OptionName::NameAttribute));
        const QString value = element.attribute(QLatin1String(OptionName::ValueAttribute));
        const QString tip = element.attribute(QLatin1String(OptionName::TipAttribute));
        const auto known = positions.constFind(name);
        if (known == positions.constEnd()) {
            positions.insert(name, m_options.size());
            m_options.push_back(new Option(name, value, tip));
        } else {
            m_options[*known]->set_value(value);
            m_options[*known]->set_tip(tip);
        }
    }
}

} // namespace Tessel
