#include "plugin/mgcbrioidlerequest.h"

#include <utility>

#include "lumo/brio.h"
#include "plugin/brioconstants.h"
#include "plugin/pluginstate.h"

MGCBrioIdleRequest::MGCBrioIdleRequest(std::string command, std::string vocabulary)
    : m_command(std::move(command)), m_vocabulary(std::move(vocabulary))
{
}

MGCBrioIdleRequest::~MGCBrioIdleRequest() = default;

void MGCBrioIdleRequest::perform()
{
    // Unlike a direct call on the main thread, an empty posted text never reaches the host.
    if (m_command.empty()) {
        m_result = false;
        return;
    }
    if (m_vocabulary.empty())
        m_vocabulary = BrioConstants::DefaultVocabulary;
    BRIOInterface* brio = PluginState::brio();
    m_result = brio != nullptr && brio->evaluate_text(m_vocabulary.c_str(), m_command.c_str());
}
