#ifndef TESTS_SUPPORT_TRANSLATIONRECORDER_H
#define TESTS_SUPPORT_TRANSLATIONRECORDER_H

#include <QCoreApplication>
#include <QMutex>
#include <QMutexLocker>
#include <QPair>
#include <QString>
#include <QTranslator>
#include <QVector>

/*!
    Translates every text into itself behind a mark, "«text", and notes what it was asked.

    Installed as long as it lives. Texts may be asked for by any thread.
*/
class TranslationRecorder : public QTranslator
{
public:
    TranslationRecorder() { QCoreApplication::installTranslator(this); }
    ~TranslationRecorder() override { QCoreApplication::removeTranslator(this); }

    bool isEmpty() const override { return false; }

    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        const QMutexLocker locker(&m_mutex);
        m_asked.append({ QString::fromUtf8(context), QString::fromUtf8(sourceText) });
        return QChar(0xAB) + QString::fromUtf8(sourceText);
    }

    /*! The contexts and texts so far, in the order asked. */
    QVector<QPair<QString, QString>> asked() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_asked;
    }

private:
    mutable QMutex m_mutex; // guards m_asked
    mutable QVector<QPair<QString, QString>> m_asked;
};

#endif // TESTS_SUPPORT_TRANSLATIONRECORDER_H
