// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/stacks.h"

#include "tools/guard/processes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <cxxabi.h>
#include <dwarf.h>
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
    // What was found out about an address. Many threads wait at the same places.
    std::map<Dwarf_Addr, std::vector<std::string>> known = {};

    bool full() const { return frames >= mostFrames || Clock::now() >= until; }
};

std::string demangled(const char *name)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 ? text.get() : name;
}

std::string sourceLine(const char *file, int line)
{
    return file == nullptr ? "" : std::string(" at ") + file + ':' + std::to_string(line);
}

const char *pathOf(Dwfl_Module *module)
{
    const char *mainFile = nullptr;
    const char *name =
        ::dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, &mainFile, nullptr);
    return mainFile != nullptr ? mainFile : name;
}

// ---- The functions at an address, with file and line: first those that were compiled into others.

std::string symbolAt(Dwfl_Module *module, Dwarf_Addr address)
{
    GElf_Off offset = 0;
    GElf_Sym symbol = {};
    const char *name =
        ::dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
    if (name == nullptr)
        return {};
    return demangled(std::string(name).substr(0, std::string(name).find('@')).c_str());
}

bool isFunction(Dwarf_Die &scope)
{
    const int tag = ::dwarf_tag(&scope);
    return tag == DW_TAG_subprogram || tag == DW_TAG_inlined_subroutine;
}

const char *nameOf(Dwarf_Die &function)
{
    Dwarf_Attribute attribute;
    const char *name =
        ::dwarf_formstring(::dwarf_attr_integrate(&function, DW_AT_linkage_name, &attribute));
    return name != nullptr ? name : ::dwarf_diename(&function);
}

// Where a function that was compiled into another is called.
std::string callerLine(Dwarf_Die &unit, Dwarf_Die &function)
{
    Dwarf_Attribute attribute;
    Dwarf_Word file = 0;
    Dwarf_Word line = 0;
    Dwarf_Files *files = nullptr;
    if (::dwarf_formudata(::dwarf_attr(&function, DW_AT_call_file, &attribute), &file) != 0
        || ::dwarf_formudata(::dwarf_attr(&function, DW_AT_call_line, &attribute), &line) != 0
        || ::dwarf_getsrcfiles(&unit, &files, nullptr) != 0)
        return {};
    return sourceLine(::dwarf_filesrc(files, file, nullptr, nullptr), static_cast<int>(line));
}

// The scopes around `inner`, or, without it, around the address; the innermost first.
std::vector<Dwarf_Die> scopesAround(Dwarf_Die *inner, Dwarf_Die &unit, Dwarf_Addr address)
{
    Dwarf_Die *scopes = nullptr;
    const int count = inner != nullptr ? ::dwarf_getscopes_die(inner, &scopes)
                                       : ::dwarf_getscopes(&unit, address, &scopes);
    const std::unique_ptr<Dwarf_Die, decltype(&std::free)> owner(scopes, &std::free);
    return count <= 0 ? std::vector<Dwarf_Die>() : std::vector<Dwarf_Die>(scopes, scopes + count);
}

std::vector<std::string> functionsAt(Dwfl_Module *module, Dwarf_Addr address)
{
    Dwfl_Line *record = ::dwfl_module_getsrc(module, address);
    int line = 0;
    const char *file = record == nullptr
        ? nullptr
        : ::dwfl_lineinfo(record, nullptr, &line, nullptr, nullptr, nullptr);
    std::string place = sourceLine(file, line);

    // The symbol tells the name with namespace and arguments, but only of the outermost function.
    std::string outermost = symbolAt(module, address);
    std::vector<std::string> functions;
    Dwarf_Addr bias = 0;
    Dwarf_Die *unit = ::dwfl_module_addrdie(module, address, &bias);
    if (unit != nullptr) {
        std::vector<Dwarf_Die> scopes = scopesAround(nullptr, *unit, address - bias);
        const auto inner = std::find_if(scopes.begin(), scopes.end(), isFunction);
        // From here on, the scopes are those that the code lies in, not those of the source text.
        if (inner != scopes.end())
            scopes = scopesAround(&*inner, *unit, address);
        for (Dwarf_Die &scope : scopes) {
            const char *name = isFunction(scope) ? nameOf(scope) : nullptr;
            if (name == nullptr)
                continue;
            if (::dwarf_tag(&scope) == DW_TAG_subprogram) {
                if (outermost.empty())
                    outermost = demangled(name);
                break;
            }
            functions.push_back(demangled(name) + place);
            place = callerLine(*unit, scope);
        }
    }
    functions.push_back((outermost.empty() ? "??" : outermost) + place);
    return functions;
}

// What is told of an address: a line as gdb writes it for each function, with the place in the file
// for addr2line(1) and a file with symbols.
std::vector<std::string> framesAt(Stacks &stacks, Dwarf_Addr address, bool interrupted)
{
    std::array<char, 32> number;
    std::snprintf(number.data(), number.size(), "0x%016llx in ",
                  static_cast<unsigned long long>(address));
    // A caller's address is the one behind its call, which can belong to the next line or function.
    const Dwarf_Addr inside = interrupted ? address : address - 1;
    Dwfl_Module *module = ::dwfl_addrmodule(stacks.dwfl, inside);
    if (module == nullptr)
        return {std::string(number.data()) + "??"};
    stacks.modules.insert(module);

    Dwarf_Addr fileAddress = address;
    ::dwfl_module_relocate_address(module, &fileAddress);
    std::array<char, 32> offset;
    std::snprintf(offset.data(), offset.size(), "+0x%llx",
                  static_cast<unsigned long long>(fileAddress));
    std::vector<std::string> frames = functionsAt(module, inside);
    for (std::string &frame : frames)
        frame.insert(0, number.data())
            .append(" from ")
            .append(pathOf(module))
            .append(offset.data());
    return frames;
}

// ---- Threads and their frames

int onFrame(Dwfl_Frame *frame, void *argument)
{
    auto &stacks = *static_cast<Stacks *>(argument);
    Dwarf_Addr address = 0;
    bool interrupted = false; // this frame did not call the one before it
    if (!::dwfl_frame_pc(frame, &address, &interrupted))
        return DWARF_CB_ABORT;
    if (stacks.framesOfThread >= mostFramesOfThread || stacks.full()) {
        std::fputs("(more frames are left out)\n", stacks.file);
        return DWARF_CB_ABORT;
    }
    std::vector<std::string> &known = stacks.known[interrupted ? address : ~address];
    if (known.empty())
        known = framesAt(stacks, address, interrupted);
    for (const std::string &text : known)
        std::fprintf(stacks.file, "#%-3d %s\n", stacks.framesOfThread++, text.c_str());
    ++stacks.frames;
    return DWARF_CB_OK;
}

// Returns false when the thread is gone. The library must not be asked for another one then.
bool writeThread(Stacks &stacks, pid_t process, pid_t thread)
{
    std::string name =
        readStart("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) + "/comm");
    name = name.substr(0, name.find('\n'));
    std::fprintf(stacks.file, "\nThread %d \"%s\":\n", thread, name.c_str());
    stacks.framesOfThread = 0;
    const int result = ::dwfl_getthread_frames(stacks.dwfl, thread, onFrame, &stacks);
    // At the end of some stacks the library cannot tell the end from an error.
    if (result != -1 || stacks.framesOfThread > 0)
        return true;
    std::fprintf(stacks.file, "(its stack cannot be read: %s)\n", ::dwfl_errmsg(-1));
    return false;
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
    // When the main thread has ended, only the others still know the memory of the process.
    const pid_t alive = threads.empty() ? process : threads.front();
    const std::unique_ptr<Dwfl, decltype(&::dwfl_end)> dwfl(::dwfl_begin(&callbacks), &::dwfl_end);
    if (!dwfl || ::dwfl_linux_proc_report(dwfl.get(), alive) != 0
        || ::dwfl_report_end(dwfl.get(), nullptr, nullptr) != 0
        || ::dwfl_linux_proc_attach(dwfl.get(), alive, true) != 0) {
        std::fprintf(file, "\n(the stacks cannot be read: %s)\n", ::dwfl_errmsg(-1));
        return;
    }
    Stacks stacks = {file, dwfl.get(), Clock::now() + longestTime};
    std::size_t written = 0;
    while (written < threads.size() && !stacks.full()) {
        if (!writeThread(stacks, process, threads[written++]))
            break;
    }
    if (written < threads.size())
        std::fprintf(file, "\n(%zu more threads are left out)\n", threads.size() - written);
    writeModules(stacks);
}
