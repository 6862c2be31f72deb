#pragma once
// Plain data behind a message: what travels on the wire, what peers describe
// in JSON, and what tests build and inspect.

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace RFMsgExp {

struct PortContent
{
    std::string name;
    int enabled = 1;
    int type = 0;
    std::string label;
    std::string note;
    double value = 0.0;
    double x = 0.0;
    double y = 0.0;
};

struct RegionContent
{
    std::string name;
    std::string netlist;
    std::string egs;
    std::vector<PortContent> ports;
};

struct PortTypeContent
{
    int id = 0;
    int flag = 0;
    std::string name;
};

struct DocumentContent
{
    std::string label;
    std::string name;
    std::string path;
    std::vector<RegionContent> regions;
    std::vector<PortTypeContent> portTypes;
};

struct MessageContent
{
    int kind = 0;
    std::vector<std::pair<std::string, std::string>> properties;
    std::string text;
    std::optional<DocumentContent> document;
    // How often Prepare() was called, and how many properties the message
    // held at the first call (so the order of Prepare is observable).
    int prepareCalls = 0;
    int propertiesAtPrepare = -1;
};

} // namespace RFMsgExp
