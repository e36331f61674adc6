// Writes the enciphered board table file from the ID table compiled into
// vtcommon:  boardtable_gen OUTPUT [BODY]
// With BODY, the text of that file is enciphered instead (for field-made
// tables and for tests).  The output is replaced atomically, and the same
// input always gives the same bytes.
#include "boardtable_crypto.h"
#include "idtable.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

std::string Hex4(uint16_t v) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "0x%04X", v);
    return buf;
}

std::string BodyFromIdTable() {
    std::string body;
    for (const vt::ids::BoardRow &row : vt::ids::BoardRows()) {
        body += vt::boardtable::FormatRecord({{"SSDID", Hex4(row.ssdid)},
                                              {"SSVID", Hex4(row.ssvid)},
                                              {"ISP", row.isp},
                                              {"Desc", row.desc},
                                              {"Supported", row.supported}});
        body += '\n';
    }
    return body;
}

bool WriteAtomically(const std::string &path, const std::vector<uint8_t> &data) {
    const std::string tmp = path + ".tmp." + std::to_string(getpid());
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
        out.close();
        if (!out) {
            std::cerr << "boardtable_gen: cannot write " << tmp << ": " << std::strerror(errno) << "\n";
            unlink(tmp.c_str());
            return false;
        }
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::cerr << "boardtable_gen: cannot rename " << tmp << " to " << path << ": " << std::strerror(errno) << "\n";
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: boardtable_gen OUTPUT [BODY]\n";
        return 2;
    }
    std::string body;
    if (argc == 3) {
        std::ifstream in(argv[2], std::ios::binary);
        if (!in) {
            std::cerr << "boardtable_gen: cannot read " << argv[2] << "\n";
            return 1;
        }
        std::ostringstream text;
        text << in.rdbuf();
        body = text.str();
    } else {
        body = BodyFromIdTable();
    }
    try {
        return WriteAtomically(argv[1], vt::boardtable::Seal(body)) ? 0 : 1;
    } catch (const std::exception &e) {
        std::cerr << "boardtable_gen: " << e.what() << "\n";
        return 1;
    }
}
