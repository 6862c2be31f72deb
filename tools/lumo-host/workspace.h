#pragma once
// What the host functions leave in the open workspace: design records,
// library folders with imported files, EM views with their ports. The file
// formats are described in README.md. Main thread only.

#include <optional>
#include <string>
#include <vector>

class QString;

class Workspace
{
public:
    struct Result
    {
        bool ok = true;
        std::string reason; // why it failed
        std::string path;   // the file written
    };

    struct DesignPort
    {
        std::string label;
        double x = 0.0;
        double y = 0.0;
        int number = 0;
        int type = 0;
    };

    struct Design
    {
        std::string first; // always empty as the plug-in sends it
        std::string cell;
        std::string design;
        std::string designPath;
        std::string region;
        int portCount = 0;
        std::optional<std::vector<DesignPort>> ports; // nothing for NULL
        int last = 0;
    };

    struct EmPort
    {
        std::string name;
        int number = 0;
        std::string type;
        double x = 0.0;
        double y = 0.0;
        double value = 0.0;
    };

    // `path` empty: no workspace open. `netlists` empty: WORKSPACE/netlists.
    Workspace(const std::string& path, const std::string& netlists,
              std::vector<std::string> libraries);

    // Creates the workspace and netlists folders when they are missing.
    bool prepare(std::string* error) const;

    const std::string& path() const { return m_path; }
    const std::string& netlistsPath() const { return m_netlists; }
    const std::vector<std::string>& libraries() const { return m_libraries; }

    Result createDesign(const Design& design);
    Result importIff(const std::string& library, const std::string& file, bool overwrite);
    Result importEgs(const std::string& library, const std::string& file, const std::string& design,
                     const std::string& region, const std::string& designPath);
    Result addEmPort(const EmPort& port);

private:
    bool checkLibrary(const std::string& library, Result& result) const;
    // The library's folder, made when missing; empty (and `result` failed) when it cannot be.
    QString libraryFolder(const std::string& library, Result& result) const;
    // The whole EM view file, or (`appended` set) only the port just added
    // and the lines after it, written where the previous port ended.
    bool writeEmView(Result& result, bool appended);

    std::string m_path;
    std::string m_netlists;
    std::vector<std::string> m_libraries;

    // The EM view that the last EGS import made; ports are added to it.
    struct EmView
    {
        std::string file;
        std::vector<EmPort> ports;
        // The file is the head, a line per port, the tail; the ports' lines
        // end at `portsEnd`.
        std::string head;
        std::string tail;
        long long portsEnd = 0;
    };
    std::optional<EmView> m_emView;
};
