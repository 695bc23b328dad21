// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/stacks.h"

#include "tools/guard/processes.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>

#include <cxxabi.h>
#include <elfutils/libdwfl.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int mostFramesOfThread = 100;
constexpr int mostFrames = 10'000; // about 1 MB
constexpr std::chrono::seconds longestTime{10};

struct Stacks
{
    std::FILE *file;
    Dwfl *dwfl;
    Clock::time_point until;
    int frames = 0; // of all threads
    int framesOfThread = 0;
    std::set<Dwfl_Module *> modules = {}; // that had a frame

    bool full() const { return frames >= mostFrames || Clock::now() >= until; }
};

std::string demangled(const char *name)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 ? text.get() : name;
}

const char *pathOf(Dwfl_Module *module)
{
    const char *mainFile = nullptr;
    const char *name =
        ::dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, &mainFile, nullptr);
    return mainFile != nullptr ? mainFile : name;
}

// A frame as gdb writes it, and where it lies in its file, for addr2line(1) and a file with
// symbols.
void writeFrame(Stacks &stacks, Dwarf_Addr address, bool called)
{
    std::fprintf(stacks.file, "#%-3d 0x%016llx in ", stacks.framesOfThread,
                 static_cast<unsigned long long>(address));
    // A caller's address is the one behind its call, which can belong to the next line or function.
    const Dwarf_Addr inside = called ? address : address - 1;
    Dwfl_Module *module = ::dwfl_addrmodule(stacks.dwfl, inside);
    if (module == nullptr) {
        std::fputs("??\n", stacks.file);
        return;
    }
    stacks.modules.insert(module);
    GElf_Off offset = 0;
    GElf_Sym symbol = {};
    const char *name =
        ::dwfl_module_addrinfo(module, inside, &offset, &symbol, nullptr, nullptr, nullptr);
    std::fputs(name != nullptr ? demangled(name).c_str() : "??", stacks.file);

    Dwfl_Line *line = ::dwfl_module_getsrc(module, inside);
    int number = 0;
    const char *source = line == nullptr
        ? nullptr
        : ::dwfl_lineinfo(line, nullptr, &number, nullptr, nullptr, nullptr);
    if (source != nullptr)
        std::fprintf(stacks.file, " at %s:%d", source, number);

    Dwarf_Addr fileAddress = address;
    ::dwfl_module_relocate_address(module, &fileAddress);
    std::fprintf(stacks.file, " from %s+0x%llx\n", pathOf(module),
                 static_cast<unsigned long long>(fileAddress));
}

int onFrame(Dwfl_Frame *frame, void *argument)
{
    auto &stacks = *static_cast<Stacks *>(argument);
    Dwarf_Addr address = 0;
    bool called = false;
    if (!::dwfl_frame_pc(frame, &address, &called))
        return DWARF_CB_ABORT;
    if (stacks.framesOfThread >= mostFramesOfThread || stacks.full()) {
        std::fputs("(more frames are left out)\n", stacks.file);
        return DWARF_CB_ABORT;
    }
    writeFrame(stacks, address, called);
    ++stacks.frames;
    ++stacks.framesOfThread;
    return DWARF_CB_OK;
}

void writeThread(Stacks &stacks, pid_t process, pid_t thread)
{
    std::string name =
        readStart("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/comm");
    name = name.substr(0, name.find('\n'));
    std::fprintf(stacks.file, "\nThread %d \"%s\":\n", thread, name.c_str());
    stacks.framesOfThread = 0;
    const int result = ::dwfl_getthread_frames(stacks.dwfl, thread, onFrame, &stacks);
    // At the end of some stacks the library cannot tell the end from an error.
    if (result == -1 && stacks.framesOfThread == 0)
        std::fprintf(stacks.file, "(its stack cannot be read: %s)\n", ::dwfl_errmsg(-1));
}

// The build ids tell which file with symbols belongs to a program without them.
void writeModules(const Stacks &stacks)
{
    if (!stacks.modules.empty())
        std::fputs("\nBuild ids:\n", stacks.file);
    for (Dwfl_Module *module : stacks.modules) {
        const unsigned char *id = nullptr;
        GElf_Addr where = 0;
        const int size = ::dwfl_module_build_id(module, &id, &where);
        for (int i = 0; i < size; ++i)
            std::fprintf(stacks.file, "%02x", id[i]);
        std::fprintf(stacks.file, "%s %s\n", size > 0 ? "" : "none", pathOf(module));
    }
}

} // namespace

void writeStacks(std::FILE *file, pid_t process, const std::vector<pid_t> &threads)
{
    Dwfl_Callbacks callbacks = {};
    callbacks.find_elf = ::dwfl_linux_proc_find_elf;
    callbacks.find_debuginfo = ::dwfl_standard_find_debuginfo;
    const std::unique_ptr<Dwfl, decltype(&::dwfl_end)> dwfl(::dwfl_begin(&callbacks), &::dwfl_end);
    if (!dwfl || ::dwfl_linux_proc_report(dwfl.get(), process) != 0
        || ::dwfl_report_end(dwfl.get(), nullptr, nullptr) != 0
        || ::dwfl_linux_proc_attach(dwfl.get(), process, true) != 0) {
        std::fprintf(file, "\n(the stacks cannot be read: %s)\n", ::dwfl_errmsg(-1));
        return;
    }
    Stacks stacks = {file, dwfl.get(), Clock::now() + longestTime};
    for (std::size_t i = 0; i < threads.size(); ++i) {
        if (stacks.full()) {
            std::fprintf(file, "\n(%zu more threads are left out)\n", threads.size() - i);
            break;
        }
        writeThread(stacks, process, threads[i]);
    }
    writeModules(stacks);
}
