#pragma once
// A message described in JSON (examples/ holds one per handled kind): its
// kind, text, properties in order and document. Texts may come from files
// named relative to the description.

#include <stdexcept>
#include <string>

#include "rfmsg/messagecontent.h"

class JsonValue;

class MessageDescription
{
public:
    // What is wrong, led by the file and, where known, line and column.
    class Error : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    // Reads the description in the file at `path`; throws Error.
    static RFMsgExp::MessageContent read(const std::string& path);
    // Reads `json`, taken from `path`; files it names are looked for in `folder`.
    static RFMsgExp::MessageContent parse(const std::string& json, const std::string& path,
                                          const std::string& folder);
};
