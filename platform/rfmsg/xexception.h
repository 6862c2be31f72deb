#pragma once
// What the library throws (as a pointer, released by the catcher with Destroy()).

#include "rfmsg/msgstring.h"
#include "rfmsg/xobject.h"

namespace RFMsgExp {

class RFMSG_EXPORT IXException : public IXObject
{
public:
    virtual const msgString& GetInfo() const = 0;
    // A new exception object with the given text; throw the pointer.
    static IXException* Create(const msgString& info);
};

} // namespace RFMsgExp
