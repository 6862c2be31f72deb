#pragma once
// Small helpers shared by the option and settings dialog tests.

#include <ostream>
#include <tuple>
#include <utility>
#include <vector>

#include "qstringprinting.h"

#include <QByteArray>
#include <QString>

namespace Tessel {
class Options;
class TesselOptions;
} // namespace Tessel

namespace OptionsTestSupport {

// name, value, tip
using Record = std::tuple<QString, QString, QString>;
using Records = std::vector<Record>;
// general, IFF
using Sets = std::pair<Records, Records>;

Records records(const Tessel::Options& options);
Sets sets(Tessel::TesselOptions& options);
void setRecords(Tessel::Options& options, const Records& records);

QByteArray readFile(const QString& path);

} // namespace OptionsTestSupport
