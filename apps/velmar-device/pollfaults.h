#ifndef VELMARDEVICE_POLLFAULTS_H
#define VELMARDEVICE_POLLFAULTS_H

#include <string>

namespace Velmar::Simulator {

class Faults;

/*! What the faults that concern the text of a progress make of \a text. */
std::string spoiltText(std::string text, const Faults &faults);

/*! \a text up to and with the beginning of a list, of numbers, under a key that hosts do not know. */
std::string beginningOfUnknownList(const std::string &text);

/*! \a text behind so many megabytes of blanks, compressed for "Content-Encoding: gzip". */
std::string gzipBomb(const std::string &text, int megabytes);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_POLLFAULTS_H
