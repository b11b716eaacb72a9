#ifndef VELMARCOMMANDLINE_OPTION_H
#define VELMARCOMMANDLINE_OPTION_H

#include "table.h"

#include <QStringList>
#include <QtGlobal>

namespace Velmar::Cli {

/*! What a value or an argument is. Says what is checked and what a shell offers for it. */
enum class ValueKind {
    Text, //!< anything, not checked
    Number, //!< decimal digits alone, within the range
    Word, //!< one of the words
    File, //!< a path, not empty
    Folder, //!< a path, not empty
};

/*!
    One row of a table of options.

    Made in one expression, as in
    \code
    constexpr Option Timeout = Option("timeout", "Give up after so long.")
                                   .number("SECONDS", 1, 86400).orElse("3600")
                                   .setting("VELMAR_TIMEOUT");
    \endcode
    The text is sentences in plain ASCII; range, words, default and "Repeatable." are added to it
    where it is shown.
*/
class Option
{
public:
    constexpr Option(const char *name, const char *text)
        : m_name(name)
        , m_text(text)
    {
    }

    /*! Also "-LETTER". */
    constexpr Option letter(char letter) const
    {
        Option option = *this;
        option.m_letter = letter;
        return option;
    }

    /*! Takes a value that is not checked. */
    constexpr Option value(const char *valueName) const
    {
        return withKind(ValueKind::Text, valueName);
    }

    /*! Takes a whole number, which is not negative. */
    constexpr Option number(const char *valueName, qint64 least, qint64 greatest) const
    {
        Option option = withKind(ValueKind::Number, valueName);
        option.m_least = least;
        option.m_greatest = greatest;
        return option;
    }

    /*! Takes one of \a words. */
    constexpr Option word(const char *valueName, Table<const char *> words) const
    {
        Option option = withKind(ValueKind::Word, valueName);
        option.m_words = words;
        return option;
    }

    constexpr Option file(const char *valueName) const
    {
        return withKind(ValueKind::File, valueName);
    }

    constexpr Option folder(const char *valueName) const
    {
        return withKind(ValueKind::Folder, valueName);
    }

    /*! Shells offer what \a function returns; other values are taken, too. */
    constexpr Option suggest(QStringList (*function)()) const
    {
        Option option = *this;
        option.m_suggestions = function;
        return option;
    }

    /*! The value if there is none from anywhere. */
    constexpr Option orElse(const char *defaultValue) const
    {
        Option option = *this;
        option.m_defaultValue = defaultValue;
        return option;
    }

    constexpr Option repeatable() const
    {
        Option option = *this;
        option.m_isRepeatable = true;
        return option;
    }

    /*! May come from the environment variable \a variable, or under its own name from the
        configuration file. For options with a value that are not repeatable. */
    constexpr Option setting(const char *variable) const
    {
        Option option = *this;
        option.m_variable = variable;
        return option;
    }

    constexpr const char *name() const { return m_name; }
    constexpr const char *text() const { return m_text; }
    constexpr char letter() const { return m_letter; } //!< 0: none
    constexpr bool hasValue() const { return m_valueName != nullptr; }
    constexpr const char *valueName() const { return m_valueName; } //!< null: takes no value
    constexpr ValueKind kind() const { return m_kind; }
    constexpr qint64 least() const { return m_least; }
    constexpr qint64 greatest() const { return m_greatest; }
    constexpr Table<const char *> words() const { return m_words; }
    QStringList suggestions() const { return m_suggestions ? m_suggestions() : QStringList(); }
    constexpr const char *defaultValue() const { return m_defaultValue; } //!< null: none
    constexpr bool isRepeatable() const { return m_isRepeatable; }
    constexpr bool isSetting() const { return m_variable != nullptr; }
    constexpr const char *variable() const { return m_variable; } //!< null: no setting

private:
    constexpr Option withKind(ValueKind kind, const char *valueName) const
    {
        Option option = *this;
        option.m_kind = kind;
        option.m_valueName = valueName;
        return option;
    }

    const char *m_name;
    const char *m_text;
    const char *m_valueName = nullptr;
    const char *m_defaultValue = nullptr;
    const char *m_variable = nullptr;
    Table<const char *> m_words;
    QStringList (*m_suggestions)() = nullptr;
    qint64 m_least = 0;
    qint64 m_greatest = 0;
    ValueKind m_kind = ValueKind::Text;
    char m_letter = 0;
    bool m_isRepeatable = false;
};

/*! A word without a name in front, such as a package. */
struct Argument {
    const char *name; //!< in capitals, as in "PACKAGE"
    const char *text;
    ValueKind kind = ValueKind::Text;
    bool isOptional = false; //!< none that is not stands behind one that is
};

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_OPTION_H
