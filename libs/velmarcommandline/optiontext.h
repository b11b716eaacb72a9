#ifndef VELMARCOMMANDLINE_OPTIONTEXT_H
#define VELMARCOMMANDLINE_OPTIONTEXT_H

#include <velmarcommandline/program.h>

#include <QString>

namespace Velmar::Cli {

/*! \a option as it is written, as in "-o, --output FILE". */
QString optionTerm(const Option &option);

/*! All that is to say of \a option: its text, and the sentences that follow from its row. */
QString optionText(const Option &option);

/*! The first sentence or half of one of \a text, without its end: for lists that have no room. */
QString firstSentence(const char *text);

/*! The paragraphs of \a text, each as one line. */
QStringList paragraphs(const char *text);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_OPTIONTEXT_H
