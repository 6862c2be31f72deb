#pragma once
// What `listen` prints for a received message: one line of JSON with the
// kind, its name, the properties in order, the text and the document. With a
// save folder, texts go to files and the line gives their paths and sizes.

#include <stdexcept>
#include <string>

#include "rfmsg/messagecontent.h"

class MessageReport
{
public:
    class Error : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    // `index` counts received messages from 1 and names the saved files;
    // an empty `saveFolder` keeps every text in the line. Throws Error when a
    // file cannot be written.
    static std::string line(const RFMsgExp::MessageContent& message, int index,
                            const std::string& saveFolder);
};
