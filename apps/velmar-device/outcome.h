#ifndef VELMARDEVICE_OUTCOME_H
#define VELMARDEVICE_OUTCOME_H

#include <velmarssproxy/linkmessages.h>

#include <QString>

namespace Velmar::Simulator {

using SSProxy::LinkAck;

/*! How a step ended, as the device says it in an answer. */
struct Outcome {
    LinkAck ack = LinkAck::Accepted;
    QString errorText; //!< for people; empty if accepted

    bool isAccepted() const { return ack == LinkAck::Accepted; }
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_OUTCOME_H
