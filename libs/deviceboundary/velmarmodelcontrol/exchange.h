#ifndef VELMARMODELCONTROL_EXCHANGE_H
#define VELMARMODELCONTROL_EXCHANGE_H

#include <velmarbizmodel/devicelink.h>
#include <velmarmodelcontrol/linkpolicy.h>

namespace Velmar::ModelControl::Internal {

/*! Asks what changes nothing on the device, again and again within the limits of \a policy. */
BizModel::LinkAnswer ask(BizModel::DeviceLink &link, const BizModel::LinkRequest &request,
                         const LinkPolicy &policy);

/*! Tells the device to do something; it never hears of it twice. */
BizModel::LinkAnswer order(BizModel::DeviceLink &link, const BizModel::LinkRequest &request,
                           const LinkPolicy &policy);

/*! For people: why \a answer is not the one wished for. */
QString failureText(const BizModel::LinkRequest &request, const BizModel::LinkAnswer &answer);

} // namespace Velmar::ModelControl::Internal

#endif // VELMARMODELCONTROL_EXCHANGE_H
