#ifndef VELMAR_TESTS_UNPRIVILEGED_H
#define VELMAR_TESTS_UNPRIVILEGED_H

#include <QByteArray>

#include <functional>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

/*! Tests about permissions: root, as which continuous integration runs, may read and write all. */
namespace Unprivileged {

constexpr uid_t UserId = 65534; // "nobody" of every Debian system

/*! Hands the file or folder at \a path to the user of run(). */
inline bool own(const QByteArray &path)
{
    return ::geteuid() != 0 || ::chown(path.constData(), UserId, UserId) == 0;
}

/*!
    What \a part returns in a process of its own, without root's privileges if there are any.

    The process has one thread and no event loop. A null array if it crashed or could not be made.
*/
inline QByteArray run(const std::function<QByteArray()> &part)
{
    int ends[2];
    if (::pipe(ends) != 0)
        return QByteArray();
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        if (::geteuid() == 0
            && (::setresgid(UserId, UserId, UserId) != 0
                || ::setresuid(UserId, UserId, UserId) != 0))
            ::_exit(1);
        const QByteArray result = part();
        const bool isTold =
            ::write(ends[1], result.constData(), static_cast<std::size_t>(result.size()))
            == result.size();
        ::_exit(isTold ? 0 : 1);
    }
    ::close(ends[1]);
    QByteArray result("");
    char buffer[4096];
    for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof(buffer))) > 0;)
        result.append(buffer, static_cast<int>(got));
    ::close(ends[0]);
    int status = -1;
    const bool isEnded = child > 0 && ::waitpid(child, &status, 0) == child;
    return isEnded && status == 0 ? result : QByteArray();
}

} // namespace Unprivileged

#endif // VELMAR_TESTS_UNPRIVILEGED_H
