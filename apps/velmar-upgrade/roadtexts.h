#ifndef VELMARUPGRADE_ROADTEXTS_H
#define VELMARUPGRADE_ROADTEXTS_H

#include "run/devicerun.h"

#include <QString>

#include <functional>

/*! What the program says of a device that it leaves, by the stage that the run had reached. */
struct RoadTexts {
    using Text = std::function<QString(Velmar::Host::DeviceRun::Stage stage)>;

    Text leaving; //!< what becomes of the device when the host goes; a sentence without its end
    Text advice; //!< what to do about a run that failed
};

/*! \a address names the device. */
RoadTexts nativeRoadTexts(const QString &address);

RoadTexts registerRoadTexts();

RoadTexts httpRoadTexts();

#endif // VELMARUPGRADE_ROADTEXTS_H
