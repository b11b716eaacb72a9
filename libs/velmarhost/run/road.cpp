#include "run/road.h"

namespace Velmar::Host {

QString roadWord(Road road)
{
    switch (road) {
    case Road::Native:
        return QStringLiteral("native");
    case Road::Http:
        return QStringLiteral("http");
    case Road::Registers:
        return QStringLiteral("registers");
    }
    return {};
}

std::optional<Road> roadOf(const QString &word)
{
    for (const auto road : { Road::Native, Road::Http, Road::Registers }) {
        if (roadWord(road) == word)
            return road;
    }
    return std::nullopt;
}

} // namespace Velmar::Host
