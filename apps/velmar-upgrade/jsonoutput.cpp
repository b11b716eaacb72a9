#include "jsonoutput.h"

#include "console.h"

using namespace Velmar::Host;

JsonOutput::JsonOutput(bool isVerbose)
    : m_isVerbose(isVerbose)
{
}

void JsonOutput::take(const RunEvent &event)
{
    if (event.kind != RunEvent::Kind::Log || m_isVerbose)
        tellJson(event);
}
