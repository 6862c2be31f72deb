#pragma once

#include <string>

#include "lumo/idlerequest.h"

// One BRIO statement to be run by the host on its main thread. Lives on the
// posting thread's stack for one RunBrioCommand call.
class MGCBrioIdleRequest : public IdleRequestC
{
public:
    MGCBrioIdleRequest(std::string command, std::string vocabulary);
    ~MGCBrioIdleRequest() override;

    // Main thread, called by the host.
    void perform() override;
    bool result() const { return m_result; }

private:
    std::string m_command;
    std::string m_vocabulary;
    bool m_result = false;
};
