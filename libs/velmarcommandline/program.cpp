#include "velmarcommandline/program.h"

#include <QLatin1String>

#include <algorithm>
#include <cstring>

namespace Velmar::Cli {

const Verb *findVerb(const Program &program, const QString &name)
{
    const auto *const found =
        std::find_if(program.verbs.begin(), program.verbs.end(),
                     [&name](const Verb &verb) { return name == QLatin1String(verb.name); });
    return found == program.verbs.end() ? nullptr : found;
}

std::vector<const Option *> optionsOf(const Program &program, const Verb *verb)
{
    std::vector<const Option *> options;
    const auto add = [&options](const Table<Option> &table) {
        for (const Option &option : table)
            options.push_back(&option);
    };
    if (verb == nullptr) {
        add(program.options);
    } else {
        add(verb->options);
        if (!verb->isHidden)
            add(program.common);
    }
    return options;
}

std::vector<const Option *> settingsOf(const Program &program)
{
    std::vector<const Option *> settings;
    const auto add = [&settings](const Table<Option> &table) {
        for (const Option &option : table) {
            const bool isNew =
                std::none_of(settings.begin(), settings.end(), [&option](const Option *known) {
                    return std::strcmp(known->name(), option.name()) == 0;
                });
            if (option.isSetting() && isNew)
                settings.push_back(&option);
        }
    };
    add(program.options);
    for (const Verb &verb : program.verbs)
        add(verb.options);
    add(program.common);
    add(program.settings);
    return settings;
}

} // namespace Velmar::Cli
