#pragma once
// Work that a non-main thread hands to the host's main thread.

#include "lumo/lumoexport.h"

class LUMO_SDK_EXPORT IdleRequestC
{
public:
    IdleRequestC();
    virtual ~IdleRequestC();
    IdleRequestC(const IdleRequestC&) = delete;
    IdleRequestC& operator=(const IdleRequestC&) = delete;

    // Called once by the host, on its main thread.
    virtual void perform() = 0;

    // Hands the request to the host and blocks until perform() has returned on
    // the main thread. Returns false without performing when no host takes
    // requests (none installed, or it is shutting down), and false when
    // perform() threw.
    bool postAndWaitUntilPerformed();
};
