#include "hostregistry.h"

#include "journal.h"
#include "journalrecord.h"
#include "lumo/brio.h"
#include "terminal.h"

HostRegistry::HostRegistry(BRIOInterface* brio, Journal& journal) : m_brio(brio), m_journal(journal)
{
}

void* HostRegistry::find_interface(const char* name)
{
    const std::string wanted = name ? name : "";
    // The plug-in casts the answer back to BRIOInterface*: hand out exactly that pointer.
    void* found = wanted == "BRIO" ? static_cast<void*>(m_brio) : nullptr;
    m_journal.write(JournalRecord("lookup").add("name", wanted).add("found", found != nullptr));
    return found;
}

int HostRegistry::report_load_error(const char* text)
{
    const std::string message = text ? text : "";
    m_loadErrors.push_back(message);
    m_journal.write(JournalRecord("load_error").add("text", message));
    Terminal::printMessage("the plug-in reports a load error: " + message);
    return 0;
}
