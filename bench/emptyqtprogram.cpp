// The least that a program on the host's libraries can do: start Qt and end.

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    return 0;
}
