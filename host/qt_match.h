// rvpoll and the driver it loads must share one Qt: the records carry QtCore
// values, and a driver built against the other major version reads them with
// the wrong layout (and drags a second QtCore into the process). Which QtCore
// a library needs is in its ELF dynamic section, read from the file before
// anything of it is loaded.
#ifndef RVPOLL_QT_MATCH_H
#define RVPOLL_QT_MATCH_H

#include <string>
#include <vector>

// The DT_NEEDED sonames (and, in `searchPath`, the DT_RUNPATH or DT_RPATH
// directories) of the ELF object in `file`; false if it is no ELF object of
// this machine's byte order.
bool readDynamicSection(const std::string &file, std::vector<std::string> &needed,
                        std::vector<std::string> *searchPath = nullptr);

// Qt major version of a QtCore soname: 4 for libQtCore.so.4, 5 for
// libQt5Core.so.5, ...; 0 for any other library.
int qtCoreMajor(const std::string &soname);

// Empty when the driver `path` (a file, or a soname looked for where the
// dynamic loader would find it) needs no QtCore of another major version
// than this process runs; otherwise the reason, for the user.
std::string qtMismatch(const std::string &path);

#endif
