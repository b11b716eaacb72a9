#ifndef CONSUMER_PACKAGE_H
#define CONSUMER_PACKAGE_H

#include <upgradefileparsed.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

/*! A package folder, written file by file, and what a parse finds in it. */
class Package
{
public:
    QString path() const { return m_folder.path(); }

    bool addFile(const QString &name, const QByteArray &bytes) const
    {
        const QString filePath = m_folder.filePath(name);
        QFile file(filePath);
        return QDir().mkpath(QFileInfo(filePath).path()) && file.open(QIODevice::WriteOnly)
            && file.write(bytes) == bytes.size();
    }

    bool parse(Velmar::Firmware::UpgradeFileParsed &parser)
    {
        using Velmar::Firmware::UpgradeFileParsed;
        QEventLoop loop;
        bool isGood = false;
        QString text;
        QThread *worker = nullptr;
        QObject::connect(
            &parser, &UpgradeFileParsed::signalParsedUpgradeFileFinished, &parser,
            [&worker] { worker = QThread::currentThread(); }, Qt::DirectConnection);
        QObject::connect(&parser, &UpgradeFileParsed::signalParsedUpgradeFileFinished, &loop,
                         [&](bool result, const QString &errorText) {
                             isGood = result;
                             text = errorText;
                             loop.quit();
                         });
        parser.startParseFile();
        loop.exec();
        worker->wait();
        if (!isGood)
            std::fprintf(stderr, "parse failed: %s\n", qPrintable(text));
        parser.upgradeFileParam(upgradeCfgs, dataFilePaths, sections);
        return isGood;
    }

    QVector<Velmar::Firmware::UpgradeCfg> upgradeCfgs;
    QVector<Velmar::Firmware::DataFilePath> dataFilePaths;
    QVector<QPair<int, QString>> sections;

private:
    QTemporaryDir m_folder;
};

#endif // CONSUMER_PACKAGE_H
