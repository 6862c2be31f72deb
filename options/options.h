#pragma once

#include <vector>

#include <QString>

class QDomDocument;
class QDomDocumentFragment;

namespace Tessel {

class Option;

// An ordered set of named text options. The set owns its records; insertion
// order is kept and is the order of the options file. Names are unique within a
// set because every insertion goes through the name lookup first.
//
// Nothing here reports a failure: an absent name reads as empty text, and the
// typed reads give false, 0 or 0.0 for an absent or malformed value.
class Options
{
public:
    using const_iterator = std::vector<Option*>::const_iterator;

    Options() = default;
    ~Options();
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    // Position of the record named exactly `name` (case-sensitive); -1 when none.
    int get_option_index(const QString& name) const;
    // Replaces value and tip of the record named `name` in place, or appends a new one.
    void set_option(const QString& name, const QString& value, const QString& tip);

    QString get_option_value(const QString& name) const;
    QString get_option_tip(const QString& name) const;
    // True exactly when the value is "true" in any letter case.
    bool get_bool_option_value(const QString& name) const;
    // Decimal integer; 0 when absent or unparsable.
    int get_int_option_value(const QString& name) const;
    // Read in the C locale, whatever the user's locale; 0.0 when absent or unparsable.
    double get_double_option_value(const QString& name) const;

    // Walks the record pointers in set order. Pointers stay valid until the
    // next clear_options().
    const_iterator get_option_begin() const { return m_options.begin(); }
    const_iterator get_option_end() const { return m_options.end(); }

    void clear_options();

    // An element `tag` holding one "Option" element per record, in set order.
    QDomDocumentFragment get_xml_frag(QDomDocument& document, const QString& tag) const;
    // Replaces the set with the "Option" children of the first element named
    // `tag` anywhere in `document`; no such element leaves the set empty.
    void load_from_dom(const QDomDocument& document, const QString& tag);

private:
    std::vector<Option*> m_options;
};

} // namespace Tessel
