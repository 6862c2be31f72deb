#include "optionstestsupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include "options/option.h"
#include "options/options.h"
#include "options/tesseloptions.h"

namespace OptionsTestSupport {

Records records(const Tessel::Options& options)
{
    Records result;
    for (auto it = options.get_option_begin(); it != options.get_option_end(); ++it)
        result.emplace_back((*it)->get_name(), (*it)->get_value(), (*it)->get_tip());
    return result;
}

Sets sets(Tessel::TesselOptions& options)
{
    return {records(options.general()), records(options.iff())};
}

void setRecords(Tessel::Options& options, const Records& records)
{
    for (const auto& [name, value, tip] : records)
        options.set_option(name, value, tip);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

} // namespace OptionsTestSupport
