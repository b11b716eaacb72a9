#ifndef VELMARFIRMWARE_UPGRADEFILEPARSED_P_H
#define VELMARFIRMWARE_UPGRADEFILEPARSED_P_H

#include "upgradefileparsed.h"

#include <QStringList>
#include <QThread>

namespace Velmar::Firmware {

class UpgradeConfig;

namespace Internal {

/*! One parse of a package on this thread. */
class UpgradeFileParsedPrivate : public QThread
{
    Q_OBJECT

public:
    explicit UpgradeFileParsedPrivate(UpgradeFileParsed *owner);

    static UpgradeFileParsedPrivate *get(UpgradeFileParsed *parser) { return parser->d; }

    void run() override;

    /*! The reader for the kind of package. Virtual for the tests: the parse takes a missing one. */
    virtual UpgradeConfig *upgradeConfig();

    // Matching: each step takes away what does not fit, and the answer is whether the unit may
    // stay.
    void matchUpgradeCfgs(QVector<UpgradeCfg> &cfgs);
    bool isMatchedCfg(UpgradeCfg &cfg);
    bool isMatchedMainCfg(UpgradeCfg &cfg);
    bool isMatchedSubCardCfg(UpgradeCfg &cfg);
    void sectionsFileLabel(int modelId, QStringList &labels);

    void fillTargetPaths();

    UpgradeFileParsed *const q;

    // Emptied before a run, written by the worker, read after its signal: never at the same time.
    QVector<UpgradeCfg> upgradeCfgs;
    QVector<DataFilePath> dataFilePaths;
    QVector<QPair<int, QString>> sectionList; // model id and section name

    // Set between runs, only read during one.
    QString path;
    bool isImageFile = false;
    bool isGivenModel = false;
    unsigned short modelId = 0; // stands for the device in use if isGivenModel
    unsigned char dataPathMode = 0; // 1: read the path file although isGivenModel
};

} // namespace Internal

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADEFILEPARSED_P_H
