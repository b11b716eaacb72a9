#ifndef VELMARUPGRADE_JSONOUTPUT_H
#define VELMARUPGRADE_JSONOUTPUT_H

#include "show/runevent.h"

/*! Passes on what belongs on the JSON road to a program: log lines if they are asked for. */
class JsonOutput final : public Velmar::Host::RunEventSink
{
public:
    explicit JsonOutput(bool isVerbose);

    void take(const Velmar::Host::RunEvent &event) override;

private:
    const bool m_isVerbose;
};

#endif // VELMARUPGRADE_JSONOUTPUT_H
