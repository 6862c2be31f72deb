#include "options/generaloptions.h"

#include "lumo/designlibraries.h"

#include "options/optionnames.h"

namespace Tessel {

void GeneralOptions::set_options_to_default()
{
    clear_options();
    // ExcludeLibrary first: the computed TargetLib depends on it.
    set_option(QLatin1String(OptionName::ExcludeLibrary), QStringLiteral("Local_Components_lib"),
               QStringLiteral("Exclude this library from the list of available libraries"));
    set_option(QLatin1String(OptionName::TargetLib),
               QString::fromStdString(get_default_target_library()),
               QStringLiteral("Import designs into this library"));
    set_option(QLatin1String(OptionName::OverwriteDesigns), QStringLiteral("false"),
               QStringLiteral("Overwrite existing cells on design import"));
}

void GeneralOptions::get_writable_libraries_except(std::set<std::string>* result,
                                                   std::string excluded) const
{
    if (!result)
        return;
    get_open_writable_libraries(result);
    if (result->empty())
        return;
    result->erase(excluded);
}

std::string GeneralOptions::get_default_target_library() const
{
    const std::string excluded =
        get_option_value(QLatin1String(OptionName::ExcludeLibrary)).toUtf8().toStdString();
    std::set<std::string> libraries;
    get_writable_libraries_except(&libraries, excluded);
    return libraries.empty() ? std::string() : *libraries.begin();
}

} // namespace Tessel
