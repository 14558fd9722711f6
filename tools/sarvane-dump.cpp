// sarvane-dump DIR [--terms | --term WORD | --doc ID | --lists]: prints the contents of a slice directory as
// JSON lines, reading it as the checker does, without changing a byte. Exit status 1 on damage, 2 on wrong usage.
#include <cstring>
#include <iostream>
#include <string>

#include "SarCheckDump.h"
#include "SarCheckFiles.h"
#include "core/Exception.h"

namespace {

int Usage() {
    std::cerr << "usage: sarvane-dump DIR [--terms | --term WORD | --doc ID | --lists]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) return Usage();
    const Ostrel::SarCheckDump dump(argv[1]);
    const std::string option = argc > 2 ? argv[2] : "--terms";
    try {
        if (option == "--terms" && argc <= 3) {
            dump.Terms(std::cout);
        } else if (option == "--term" && argc == 4) {
            dump.Term(argv[3], std::cout);
        } else if (option == "--doc" && argc == 4) {
            char* end = nullptr;
            const unsigned long id = std::strtoul(argv[3], &end, 10);
            if (*end || id > 0xFFFFFFFFul) return Usage();
            dump.Document(uint32_t(id), std::cout);
        } else if (option == "--lists" && argc == 3) {
            dump.Lists(std::cout);
        } else {
            return Usage();
        }
    } catch (const Ostrel::SarCheckDamage& damage) {
        std::cerr << "damaged: " << damage.finding.ToString() << "\n";
        return 1;
    } catch (const Vantu::BaseException& e) {
        std::cerr << "error: " << e.WhatUtf8() << "\n";
        return 1;
    }
    return 0;
}
