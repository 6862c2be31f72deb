#include "options/iffoptions.h"

#include <QFile>
#include <QTextStream>

#include "options/option.h"
#include "options/optionnames.h"

namespace Tessel {

namespace {

struct DefaultRecord
{
    const char* name;
    const char* value;
    const char* tip;
};

// The catalogue in the order in which it is laid down (and written).
constexpr DefaultRecord defaultRecords[] = {
    {OptionName::HierarchyOption, "2", ""},
    {OptionName::DefaultLibraryPath, "lumo_rflib", ""},
    {OptionName::PromptForUserMessage, "FALSE", ""},
    {OptionName::ExportProjects, "", ""},
    {OptionName::ExportOverwriteIFF, "TRUE", ""},
    {OptionName::ExportVersion, "2", ""},
    {OptionName::ExportIgnoreDisabled, "TRUE", ""},
    {OptionName::ExportLumoProperties, "TRUE", ""},
    {OptionName::ExportUseSpaceInValues, "FALSE", ""},
    {OptionName::ExportStoreSchemAnnotPos, "FALSE", ""},
    {OptionName::ExportPrefixLibNameToCellName, "FALSE",
     "Add the library name as cell name prefix in IFF output"},
    {OptionName::ExportIgnoreIffPathProperty, "FALSE", ""},
    {OptionName::ImportRemoveIFF, "FALSE", ""},
    {OptionName::ImportLayoutLibraryInstances, "TRUE", ""},
    {OptionName::ImportInteractive, "TRUE", ""},
    {OptionName::ImportSynchronizeConnectorByNodeName, "FALSE", ""},
    {OptionName::ImportPortWireLabel, "TRUE", ""},
    {OptionName::ImportVersion, "3", ""},
    {OptionName::ImportVerboseMode, "FALSE", ""},
    {OptionName::ImportIgnoreIffPathProperty, "FALSE", ""},
    {OptionName::ImportLayoutMeanderAsPath, "TRUE", ""},
    {OptionName::ImportLayoutMeanderAsPolygon, "FALSE", ""},
    {OptionName::ImportLayoutPinSnapMode, "FALSE", ""},
    {OptionName::ImportMentorArcMode, "TRUE", ""},
    {OptionName::ImportShallowArcTolerance, "1.0", ""},
    {OptionName::ImportLayoutViewTypeLayerMapping, "FALSE", ""},
    {OptionName::ImportOverwriteExistingDesign, "FALSE", ""},
};

} // namespace

void IFFOptions::set_options_to_default()
{
    clear_options();
    for (const DefaultRecord& record : defaultRecords)
        set_option(QString::fromUtf8(record.name), QString::fromUtf8(record.value),
                   QString::fromUtf8(record.tip));
}

bool IFFOptions::write_IFF_options_file(QString path) const
{
    // Qt warns on stderr about an empty file name; the options stay quiet.
    if (path.isEmpty())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;

    // The translators read the project list up to its semicolon; every other
    // line ends bare.
    const QString plainLine = QStringLiteral("%1 = %2\n");
    const QString projectLine = QStringLiteral("%1 = %2;\n");
    const QString projectName = QLatin1String(OptionName::ExportProjects);

    QTextStream stream(&file);
    for (auto it = get_option_begin(); it != get_option_end(); ++it) {
        const Option& option = **it;
        const QString& line = option.get_name() == projectName ? projectLine : plainLine;
        // One pass over both markers: a '%' inside a name or value stays as it is.
        stream << line.arg(option.get_name(), option.get_value());
    }
    stream.flush();
    file.close();
    return true;
}

} // namespace Tessel
