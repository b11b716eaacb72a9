#include "optiontext.h"

#include <QRegularExpression>

namespace Velmar::Cli {

QString optionTerm(const Option &option)
{
    QString term;
    if (option.letter() != 0)
        term = QStringLiteral("-%1, ").arg(QLatin1Char(option.letter()));
    term += QLatin1String("--") + QLatin1String(option.name());
    if (option.hasValue())
        term += QLatin1Char(' ') + QLatin1String(option.valueName());
    return term;
}

QString optionText(const Option &option)
{
    QStringList sentences { QString::fromUtf8(option.text()) };
    if (option.kind() == ValueKind::Number)
        sentences.append(
            QStringLiteral("From %1 to %2.").arg(option.least()).arg(option.greatest()));
    if (!option.words().isEmpty()) {
        QStringList words;
        for (const char *word : option.words())
            words.append(QLatin1String(word));
        const QString last = words.takeLast();
        sentences.append(
            QStringLiteral("%1 is %2 or %3.")
                .arg(QLatin1String(option.valueName()), words.join(QStringLiteral(", ")), last));
    }
    if (option.defaultValue() != nullptr)
        sentences.append(
            QStringLiteral("Default: %1.").arg(QString::fromUtf8(option.defaultValue())));
    if (option.isRepeatable())
        sentences.append(QStringLiteral("Repeatable."));
    return sentences.join(QLatin1Char(' '));
}

QString firstSentence(const char *text)
{
    static const QRegularExpression end(QStringLiteral("[.;](?: |$)"));
    const QString all = QString::fromUtf8(text);
    return all.left(all.indexOf(end));
}

QStringList paragraphs(const char *text)
{
    QStringList all = QString::fromUtf8(text).split(QStringLiteral("\n\n"));
    for (QString &paragraph : all)
        paragraph = paragraph.simplified();
    return all;
}

} // namespace Velmar::Cli
