#ifndef VELMARMODELCONTROL_LINKPOLICY_H
#define VELMARMODELCONTROL_LINKPOLICY_H

#include "velmarmodelcontrol_export.h"

namespace Velmar::ModelControl {

/*!
    How patient the control layer is with a device. All times are in milliseconds.

    What is only read (version, progress) is asked again, over a new connection if need be, until
    the device has answered or readRepeatTime is over. Anything else is sent again only if the link
    has proven that the device never got it. A refusal is an answer, and nothing is repeated behind
    it.
*/
struct LinkPolicy {
    int connectTimeout = 5000; //!< for one attempt to connect
    int readTimeout = 5000; //!< for the answer to one question
    int writeTimeout = 10000; //!< for the answer to one order
    int chunkTimeout = 30000; //!< for the answer to one piece of a file; slow links need long
    int closeTimeout =
        120000; //!< for the answer to the end of a file, which the device checks first
    int readRepeatTime = 60000; //!< from the first try to the end of the last; 0: a single try
    int writeRepeatTime = 10000; //!< from the first try to the start of the last; 0: a single try
    int repeatPause = 250; //!< between two tries
};

/*! The policy of this process. Any thread may ask and set; a call that has begun keeps the one that
    it began with. */
VELMARMODELCONTROL_EXPORT LinkPolicy linkPolicy();
VELMARMODELCONTROL_EXPORT void setLinkPolicy(const LinkPolicy &policy);

} // namespace Velmar::ModelControl

#endif // VELMARMODELCONTROL_LINKPOLICY_H
