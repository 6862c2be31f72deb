// Load and save of the options file written from defaults, each beside a plain
// read or write of the same bytes measured in the same run.

#include <string>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include "fakehost.h"
#include "options/tesseloptions.h"

namespace {

// A temporary folder holding the options file written from defaults with two
// open libraries, as a first start leaves it.
class DefaultFile
{
public:
    DefaultFile()
    {
        m_host.setLibraries({"Local_Components_lib", "rflib", "tessel_lib"});
        m_path = m_dir.filePath(QStringLiteral("Tessel.opt"));
        m_options.set_option_file_name(m_path.toStdString());
        m_options.set_options_to_default();
        m_ok = m_dir.isValid() && m_options.save();
        QFile file(m_path);
        m_ok = m_ok && file.open(QIODevice::ReadOnly);
        m_bytes = file.readAll();
    }

    bool ok() const { return m_ok && !m_bytes.isEmpty(); }
    const QString& path() const { return m_path; }
    const QByteArray& bytes() const { return m_bytes; }
    Tessel::TesselOptions& options() { return m_options; }

private:
    FakeHost m_host;
    QTemporaryDir m_dir;
    QString m_path;
    Tessel::TesselOptions m_options;
    QByteArray m_bytes;
    bool m_ok = false;
};

void BM_Load(benchmark::State& state)
{
    DefaultFile file;
    if (!file.ok())
        return state.SkipWithError("could not write the default options file");
    for (auto _ : state) {
        file.options().load();
        benchmark::DoNotOptimize(
            file.options().general().get_option_index(QStringLiteral("TargetLib")));
    }
    state.SetBytesProcessed(state.iterations() * file.bytes().size());
}

void BM_ReadFileBaseline(benchmark::State& state)
{
    DefaultFile file;
    if (!file.ok())
        return state.SkipWithError("could not write the default options file");
    for (auto _ : state) {
        QFile input(file.path());
        if (!input.open(QIODevice::ReadOnly | QIODevice::Text))
            return state.SkipWithError("could not open the options file");
        QByteArray bytes = input.readAll();
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(state.iterations() * file.bytes().size());
}

void BM_Save(benchmark::State& state)
{
    DefaultFile file;
    if (!file.ok())
        return state.SkipWithError("could not write the default options file");
    for (auto _ : state) {
        if (!file.options().save())
            return state.SkipWithError("save failed");
    }
    state.SetBytesProcessed(state.iterations() * file.bytes().size());
}

void BM_WriteFileBaseline(benchmark::State& state)
{
    DefaultFile file;
    if (!file.ok())
        return state.SkipWithError("could not write the default options file");
    for (auto _ : state) {
        QFile output(file.path());
        if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            return state.SkipWithError("could not open the options file");
        benchmark::DoNotOptimize(output.write(file.bytes()));
    }
    state.SetBytesProcessed(state.iterations() * file.bytes().size());
}

} // namespace

BENCHMARK(BM_Load)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadFileBaseline)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Save)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WriteFileBaseline)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
