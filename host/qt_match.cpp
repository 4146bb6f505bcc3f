#include "qt_match.h"

#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <QtGlobal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

template <class T>
bool readAt(const std::string &data, unsigned long long offset, T &out)
{
    if (offset > data.size() || data.size() - offset < sizeof(T))
        return false;
    std::memcpy(&out, data.data() + offset, sizeof(T));
    return true;
}

// Walks the program headers to the dynamic segment, and maps the string
// table's address back to a file offset through the loadable segments.
template <class Ehdr, class Phdr, class Dyn>
bool dynamicEntries(const std::string &data, std::vector<std::string> &needed,
                    std::vector<std::string> &searchPath)
{
    Ehdr eh;
    if (!readAt(data, 0, eh))
        return false;
    std::vector<Phdr> segments;
    for (unsigned i = 0; i < eh.e_phnum; ++i) {
        Phdr ph;
        if (!readAt(data, eh.e_phoff + 1ULL * i * eh.e_phentsize, ph))
            return false;
        segments.push_back(ph);
    }
    std::vector<unsigned long long> neededAt, pathAt;
    unsigned long long strtab = 0, strsz = 0;
    bool dynamic = false;
    for (const Phdr &ph : segments) {
        if (ph.p_type != PT_DYNAMIC)
            continue;
        dynamic = true;
        Dyn d;
        for (unsigned long long at = ph.p_offset; at + sizeof(Dyn) <= ph.p_offset + ph.p_filesz &&
                                                  readAt(data, at, d) && d.d_tag != DT_NULL;
             at += sizeof(Dyn)) {
            if (d.d_tag == DT_NEEDED)
                neededAt.push_back(d.d_un.d_val);
            else if (d.d_tag == DT_RUNPATH || d.d_tag == DT_RPATH)
                pathAt.push_back(d.d_un.d_val);
            else if (d.d_tag == DT_STRTAB)
                strtab = d.d_un.d_ptr;
            else if (d.d_tag == DT_STRSZ)
                strsz = d.d_un.d_val;
        }
    }
    unsigned long long strOffset = 0;
    bool mapped = false;
    for (const Phdr &ph : segments)
        if (ph.p_type == PT_LOAD && strtab >= ph.p_vaddr && strtab - ph.p_vaddr < ph.p_filesz) {
            strOffset = strtab - ph.p_vaddr + ph.p_offset;
            mapped = true;
        }
    if (!dynamic || !mapped || strOffset > data.size() || data.size() - strOffset < strsz)
        return false;
    const std::string strings = data.substr(strOffset, strsz);
    auto text = [&strings](unsigned long long at) {
        return at < strings.size() ? std::string(strings.c_str() + at) : std::string();
    };
    for (unsigned long long at : neededAt)
        needed.push_back(text(at));
    for (unsigned long long at : pathAt) {
        std::istringstream dirs(text(at));
        for (std::string dir; std::getline(dirs, dir, ':');)
            searchPath.push_back(dir);
    }
    return true;
}

std::vector<std::string> splitPath(const char *list)
{
    std::vector<std::string> dirs;
    std::istringstream in(list ? list : "");
    for (std::string dir; std::getline(in, dir, ':');)
        if (!dir.empty())
            dirs.push_back(dir);
    return dirs;
}

int addLoadedFolder(dl_phdr_info *info, size_t, void *dirs)
{
    const std::string name = info->dlpi_name ? info->dlpi_name : "";
    if (name.find('/') != std::string::npos)
        static_cast<std::vector<std::string> *>(dirs)->push_back(name.substr(0, name.rfind('/')));
    return 0;
}

// Where the dynamic loader would look for a soname, in its order: the
// environment's path, this program's own run path, then the folders this
// process took its own libraries from (the system's, its QtCore's), which
// stand in for the loader's cache.
std::string locate(const std::string &soname)
{
    std::vector<std::string> dirs = splitPath(std::getenv("LD_LIBRARY_PATH")), own, unused;
    std::string self(4096, '\0');
    const ssize_t n = readlink("/proc/self/exe", &self[0], self.size());
    self.resize(n > 0 ? size_t(n) : 0);
    readDynamicSection("/proc/self/exe", unused, &own);
    for (std::string dir : own) {
        if (dir.rfind("$ORIGIN", 0) == 0)
            dir.replace(0, 7, self.substr(0, self.rfind('/')));
        dirs.push_back(dir);
    }
    dl_iterate_phdr(addLoadedFolder, &dirs);
    for (const std::string &dir : dirs)
        if (access((dir + "/" + soname).c_str(), R_OK) == 0)
            return dir + "/" + soname;
    return std::string();
}

}  // namespace

bool readDynamicSection(const std::string &file, std::vector<std::string> &needed,
                        std::vector<std::string> *searchPath)
{
    std::ifstream in(file, std::ios::binary);
    const std::string data((std::istreambuf_iterator<char>(in)), {});
    const unsigned one = 1;
    const int ownOrder = *reinterpret_cast<const unsigned char *>(&one) ? ELFDATA2LSB : ELFDATA2MSB;
    std::vector<std::string> path;
    if (data.size() < EI_NIDENT || data.compare(0, SELFMAG, ELFMAG) != 0 ||
        data[EI_DATA] != ownOrder)
        return false;
    const bool ok = data[EI_CLASS] == ELFCLASS64
                        ? dynamicEntries<Elf64_Ehdr, Elf64_Phdr, Elf64_Dyn>(data, needed, path)
                        : data[EI_CLASS] == ELFCLASS32 &&
                              dynamicEntries<Elf32_Ehdr, Elf32_Phdr, Elf32_Dyn>(data, needed, path);
    if (searchPath)
        *searchPath = path;
    return ok;
}

int qtCoreMajor(const std::string &soname)
{
    // Qt 4 named it libQtCore.so.4; from Qt 5 on the version is in the name.
    if (soname.rfind("libQtCore.so.", 0) == 0)
        return 4;
    const size_t core = soname.find("Core.so");
    if (soname.rfind("libQt", 0) != 0 || core <= 5 ||
        soname.find_first_not_of("0123456789", 5) != core)
        return 0;
    return std::atoi(soname.c_str() + 5);
}

std::string qtMismatch(const std::string &path)
{
    const std::string file = path.find('/') == std::string::npos ? locate(path) : path;
    std::vector<std::string> needed;
    if (file.empty() || !readDynamicSection(file, needed))
        return std::string();  // the loader reports what it cannot find or load
    const int own = std::atoi(qVersion());
    for (const std::string &lib : needed) {
        const int major = qtCoreMajor(lib);
        if (major != 0 && major != own)
            return "driver " + file + " needs " + lib + " (Qt " + std::to_string(major) +
                   "), but rvpoll runs on Qt " + std::to_string(own) +
                   ": use the driver built against Qt " + std::to_string(own);
    }
    return std::string();
}
