#ifndef VELMARHOST_IMAGEBUILD_H
#define VELMARHOST_IMAGEBUILD_H

#include "run/upgraderun.h"

#include <QString>

namespace Velmar::Host {

/*!
    The image that a native upgrade would send, built without sending it.

    The upgrade library packs an image only on its way to a device. So it is given the device behind
    a link that lets the question for its version through and nothing else: the run ends at the
    announcement, with the image in the package folder. The library then takes its search for
    devices up again, 10 s later, as behind each run.
*/
class ImageBuild
{
public:
    /*! \a order as for an upgrade; its device stays as it is. */
    explicit ImageBuild(const UpgradeOrder &order);

    /*! Removes the image. */
    ~ImageBuild();

    /*!
        Builds the image and blocks until that is done, in an event loop of its own.

        False, with \a errorText set, if the library could not build it, or not within \a timeLimit.
        Once for each object.
    */
    bool run(std::chrono::milliseconds timeLimit, QString &errorText);

    const QString &imagePath() const;

private:
    Q_DISABLE_COPY_MOVE(ImageBuild)

    class AskingLink;

    const std::shared_ptr<AskingLink> m_link;
    const std::shared_ptr<BizModel::Device> m_device; // the same device behind m_link
    const QString m_imagePath;
    UpgradeRun m_run;
};

} // namespace Velmar::Host

#endif // VELMARHOST_IMAGEBUILD_H
