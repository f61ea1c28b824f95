#include "calls.hpp"

#include "standins.hpp"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>
#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <thread>

using standins::bus;

namespace faults {

const std::array<Family, 11> families{{
    {"hidapi", Group::hidapi, -1},
    {"libusb-io", Group::libusb, LIBUSB_ERROR_IO},
    {"libusb-pipe", Group::libusb, LIBUSB_ERROR_PIPE},
    {"libusb-timeout", Group::libusb, LIBUSB_ERROR_TIMEOUT},
    {"libusb-gone", Group::libusb, LIBUSB_ERROR_NO_DEVICE},
    {"memory", Group::memory, ENOMEM},
    {"threads", Group::threads, EAGAIN},
    {"locks", Group::locks, EINVAL},
    {"files", Group::files, EIO},
    {"clock", Group::clock, EINVAL},
    {"pauses", Group::pauses, EINTR},
}};

const Family* find_family(std::string_view name) {
    const auto* found =
        std::find_if(families.begin(), families.end(), [=](const Family& one) { return one.name == name; });
    return found == families.end() ? nullptr : found;
}

namespace {

// What one case does; the library's threads read it too.
struct Case {
    std::atomic<const Family*> family = nullptr;
    std::atomic<unsigned int> call = 0;
    std::atomic<bool> for_good = false;
    std::atomic<bool> running = false;
    std::atomic<bool> came = false;
    std::atomic<bool> keeps_queue = false;
    std::atomic<unsigned int> failed_calls = 0;
    std::array<std::atomic<unsigned int>, groups> counts = {};
    std::atomic<unsigned int> naps = 0;
};
Case current;

// What the library was given and has not given back, with the place that asked. Never destroyed: a process may end
// while its threads run.
struct Blocks {
    std::mutex mutex;
    std::map<void*, void*> held;
};
Blocks& held_blocks() {
    static Blocks& blocks = *new Blocks;
    return blocks;
}

std::atomic<int> all_locks_held = 0;
std::uintptr_t library_begin = 0;

constexpr std::size_t most_broken = 16;

struct Thread {
    bool is_main = false;
    bool truce = false;
    int locks = 0;
    std::int64_t spent_us = 0;
    // Locks that this thread believes to hold.
    std::array<const pthread_mutex_t*, most_broken> broken = {};
};
thread_local Thread own;

constexpr std::int64_t transfer_us = 100; // of a call to a pad, over the stand-ins' own
constexpr std::int64_t wake_up_us = 1000; // of a pause that a signal ends

void spend(std::int64_t microseconds) {
    own.spent_us += microseconds;
    bus().advance_us(microseconds);
}

// Counts a call: the failure, where it is to fail.
std::optional<int> due(Group group) {
    if (own.truce || !current.running) {
        return std::nullopt;
    }
    const unsigned int number = ++current.counts[static_cast<std::size_t>(group)];
    const Family* const family = current.family;
    if (family == nullptr || family->group != group) {
        return std::nullopt;
    }
    const unsigned int planned = current.call;
    if (number != planned && !(current.for_good && number > planned)) {
        return std::nullopt;
    }
    current.came = true;
    ++current.failed_calls;
    errno = family->failure;
    return family->failure;
}

// The result is the failure itself.
struct FailureItself {};
// The result is an errno.
constexpr FailureItself failure_itself;

template <typename Result, auto result> Result failed(int failure) {
    if constexpr (std::is_same_v<std::remove_const_t<decltype(result)>, FailureItself>) {
        return static_cast<Result>(failure);
    } else {
        return static_cast<Result>(result);
    }
}

constexpr bool takes_time(Group group) {
    return group == Group::hidapi || group == Group::libusb;
}

// A call that fails is not made.
template <auto call, Group group, auto result, typename Type = decltype(call)> struct Refused;
template <auto call, Group group, auto result, typename Result, typename... Arguments>
struct Refused<call, group, result, Result (*)(Arguments...)> {
    static Result make(Arguments... arguments) {
        if constexpr (takes_time(group)) {
            spend(transfer_us);
        }
        if (const auto failure = due(group)) {
            return failed<Result, result>(*failure);
        }
        return call(arguments...);
    }
};
template <auto call, Group group, auto result, typename Result, typename... Arguments>
struct Refused<call, group, result, Result (*)(Arguments...) noexcept>
    : Refused<static_cast<Result (*)(Arguments...)>(call), group, result, Result (*)(Arguments...)> {};

// A call that fails has done its work: nothing else could be expected of an end.
template <auto call, Group group, auto result, typename Type = decltype(call)> struct Complaining;
template <auto call, Group group, auto result, typename Result, typename... Arguments>
struct Complaining<call, group, result, Result (*)(Arguments...)> {
    static Result make(Arguments... arguments) {
        const Result done = call(arguments...);
        const auto failure = due(group);
        return failure ? failed<Result, result>(*failure) : done;
    }
};
template <auto call, Group group, auto result, typename Result, typename... Arguments>
struct Complaining<call, group, result, Result (*)(Arguments...) noexcept>
    : Complaining<static_cast<Result (*)(Arguments...)>(call), group, result, Result (*)(Arguments...)> {};

// Memory.

void* given(void* block, void* caller) {
    if (block != nullptr) {
        const std::lock_guard guard(held_blocks().mutex);
        held_blocks().held[block] = caller;
    }
    return block;
}

void taken_back(void* block) {
    const std::lock_guard guard(held_blocks().mutex);
    held_blocks().held.erase(block);
}

void* allocate(std::size_t size) {
    constexpr int rubbish = 0xA5;
    if (due(Group::memory)) {
        return nullptr;
    }
    void* const block = given(std::malloc(size), __builtin_return_address(0));
    return block == nullptr ? nullptr : std::memset(block, rubbish, size);
}

void* allocate_cleared(std::size_t count, std::size_t size) {
    return due(Group::memory) ? nullptr : given(std::calloc(count, size), __builtin_return_address(0));
}

void* allocate_again(void* block, std::size_t size) {
    if (due(Group::memory)) {
        return nullptr;
    }
    taken_back(block);
    return given(std::realloc(block, size), __builtin_return_address(0));
}

void give_back(void* block) {
    taken_back(block);
    std::free(block);
}

// Locks.

bool forget_broken(const pthread_mutex_t* mutex) {
    const auto found = std::find(own.broken.begin(), own.broken.end(), mutex);
    if (found == own.broken.end()) {
        return false;
    }
    *found = nullptr;
    return true;
}

// A queue that cannot be locked is not destroyed, which is documented.
void note_kept_queue(void* caller) {
    Dl_info place{};
    if (dladdr(caller, &place) != 0 && place.dli_sname != nullptr &&
        (std::string_view(place.dli_sname) == "destroy_uni_queue" ||
         std::string_view(place.dli_sname) == "__lock_uni_queue")) {
        current.keeps_queue = true;
    }
}

// Who holds one that failed is alone with it: the thread that fails does not get it, and gives nothing back.
int take_lock(pthread_mutex_t* mutex) {
    if (const auto failure = due(Group::locks)) {
        note_kept_queue(__builtin_return_address(0));
        if (const auto free = std::find(own.broken.begin(), own.broken.end(), nullptr); free != own.broken.end()) {
            *free = mutex;
        }
        return *failure;
    }
    const int result = pthread_mutex_lock(mutex);
    if (result == 0) {
        forget_broken(mutex); // nobody gave back what was not got
        ++own.locks;
        ++all_locks_held;
    }
    return result;
}

int try_lock(pthread_mutex_t* mutex) {
    if (const auto failure = due(Group::locks)) {
        return *failure;
    }
    const int result = pthread_mutex_trylock(mutex);
    if (result == 0) {
        forget_broken(mutex);
        ++own.locks;
        ++all_locks_held;
    }
    return result;
}

int release_lock(pthread_mutex_t* mutex) {
    if (forget_broken(mutex)) {
        return EPERM;
    }
    --own.locks;
    --all_locks_held;
    const int result = pthread_mutex_unlock(mutex);
    return due(Group::locks).value_or(result);
}

int wait_for(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (std::find(own.broken.begin(), own.broken.end(), mutex) != own.broken.end()) {
        return EPERM;
    }
    const auto failure = due(Group::locks);
    return failure ? *failure : pthread_cond_wait(condition, mutex);
}

// Time.

// The library's own threads really pause, or they would do nothing else; the application's makes way for them.
int pause_for(useconds_t microseconds) {
    if (due(Group::pauses)) {
        spend(std::min<std::int64_t>(microseconds, wake_up_us));
        std::this_thread::sleep_for(std::chrono::microseconds(own.is_main ? 0 : 20));
        return -1;
    }
    own.spent_us += microseconds;
    const int result = usleep(microseconds);
    if (own.is_main) {
        sched_yield();
    } else {
        ++current.naps;
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    return result;
}

// Transfers.

int transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length, int* transferred,
             unsigned int time_out) {
    spend(transfer_us);
    const auto failure = due(Group::libusb);
    if (failure == LIBUSB_ERROR_TIMEOUT) {
        bus().advance_us(std::int64_t{time_out} * 1000);
    }
    const int result = failure ? *failure : libusb_bulk_transfer(handle, endpoint, data, length, transferred, time_out);
    if (result == LIBUSB_ERROR_TIMEOUT) {
        own.spent_us += std::int64_t{time_out} * 1000;
    }
    return result;
}

// Files. Short counts are a success that is less than asked for.

int open_file(const char* path, int flags, mode_t mode) {
    return due(Group::files) ? -1 : open(path, flags, mode);
}

int print_formatted(FILE* stream, const char* format, ...) {
    if (due(Group::files)) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = std::vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int print_checked(FILE* stream, int, const char* format, ...) {
    if (due(Group::files)) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = std::vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int control_process(int option, unsigned long argument) {
    return due(Group::threads) ? -1 : prctl(option, argument, 0UL, 0UL, 0UL);
}

struct Entry {
    std::string_view name;
    void* function;
};

template <typename Function> void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

#define REFUSED(call, group, result)                                                                                   \
    Entry {                                                                                                            \
#call, address(&Refused <&(call), Group::group, result>::make)                                                 \
    }
#define COMPLAINING(call, group, result)                                                                               \
    Entry {                                                                                                            \
#call, address(&Complaining <&(call), Group::group, result>::make)                                             \
    }

const Entry entries[] = {
    REFUSED(hid_enumerate, hidapi, nullptr),
    REFUSED(hid_open_path, hidapi, nullptr),
    REFUSED(hid_get_manufacturer_string, hidapi, -1),
    REFUSED(hid_get_product_string, hidapi, -1),
    REFUSED(hid_get_serial_number_string, hidapi, -1),
    REFUSED(hid_send_feature_report, hidapi, -1),
    REFUSED(hid_get_feature_report, hidapi, -1),
    REFUSED(hid_read, hidapi, -1),
    REFUSED(hid_set_nonblocking, hidapi, -1),
    COMPLAINING(hid_exit, hidapi, -1),
    REFUSED(libusb_init, libusb, failure_itself),
    REFUSED(libusb_get_device_list, libusb, failure_itself),
    REFUSED(libusb_get_device_descriptor, libusb, failure_itself),
    REFUSED(libusb_get_config_descriptor, libusb, failure_itself),
    REFUSED(libusb_get_string_descriptor_ascii, libusb, failure_itself),
    REFUSED(libusb_open, libusb, failure_itself),
    REFUSED(libusb_kernel_driver_active, libusb, failure_itself),
    REFUSED(libusb_detach_kernel_driver, libusb, failure_itself),
    REFUSED(libusb_claim_interface, libusb, failure_itself),
    {"libusb_bulk_transfer", address(&transfer)},
    {"malloc", address(&allocate)},
    {"calloc", address(&allocate_cleared)},
    {"realloc", address(&allocate_again)},
    {"free", address(&give_back)},
    REFUSED(pthread_create, threads, failure_itself),
    REFUSED(pthread_attr_init, threads, failure_itself),
    REFUSED(pthread_attr_setdetachstate, threads, failure_itself),
    REFUSED(pthread_attr_setstacksize, threads, failure_itself),
    COMPLAINING(pthread_attr_destroy, threads, failure_itself),
    {"prctl", address(&control_process)},
    REFUSED(pthread_mutex_init, locks, failure_itself),
    COMPLAINING(pthread_mutex_destroy, locks, failure_itself),
    {"pthread_mutex_lock", address(&take_lock)},
    {"pthread_mutex_trylock", address(&try_lock)},
    {"pthread_mutex_unlock", address(&release_lock)},
    {"pthread_cond_wait", address(&wait_for)},
    COMPLAINING(pthread_cond_broadcast, locks, failure_itself),
    COMPLAINING(pthread_cond_destroy, locks, failure_itself),
    {"open", address(&open_file)},
    REFUSED(opendir, files, nullptr),
    REFUSED(fstat, files, -1),
    REFUSED(stat, files, -1),
    REFUSED(read, files, -1),
    REFUSED(write, files, -1),
    COMPLAINING(close, files, -1),
    REFUSED(fputs, files, EOF),
    COMPLAINING(fflush, files, EOF),
    {"fprintf", address(&print_formatted)},
    {"__fprintf_chk", address(&print_checked)},
    {"usleep", address(&pause_for)},
    REFUSED(gettimeofday, clock, -1),
    REFUSED(localtime_r, clock, nullptr),
    REFUSED(strftime, clock, 0),
};

// They cannot fail, or only for whoever calls them wrongly, or none of the exported functions that are tried here leads
// to them: these stand in the second half.
constexpr std::string_view left_alone[] = {
    "abort", "bcmp", "btowc", "closedir", "dladdr", "environ", "exit", "getenv", "gnu_get_libc_version", "hid_close",
    "hid_error", "hid_free_enumeration", "libusb_close", "libusb_error_name", "libusb_free_config_descriptor",
    "libusb_free_device_list", "libusb_ref_device", "libusb_set_debug", "libusb_unref_device", "memchr", "memcmp",
    "memcpy", "memmove", "memset", "readdir", "round", "secure_getenv", "setlocale", "snprintf", "stderr", "stdout",
    "strcat", "strcmp", "strerror_r", "strftime", "strlen", "strncat", "strncmp", "strnlen", "strtol", "atoi",
    "syscall", "syslog", "vsnprintf", "wctob",
    //
    "pthread_cond_signal", "pthread_cond_timedwait", "pthread_detach", "pthread_join", "pthread_key_create",
    "pthread_kill", "pthread_mutexattr_init", "pthread_mutexattr_setpshared", "pthread_once", "pthread_setspecific"};

// The library's, by its dynamic section.
struct Object {
    std::uintptr_t base = 0;
    const ElfW(Dyn) * dynamic = nullptr;
};

Object find_library() {
    Object library;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* found) {
            if (std::string_view(info->dlpi_name).find("libvxpadcom.so") == std::string_view::npos) {
                return 0;
            }
            auto& object = *static_cast<Object*>(found);
            object.base = info->dlpi_addr;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                if (info->dlpi_phdr[i].p_type == PT_DYNAMIC) {
                    object.dynamic = reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
                }
            }
            return 1;
        },
        &library);
    return library;
}

void put(void** slot, void* function) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto* const start = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(slot) / page * page);
    if (mprotect(start, page, PROT_READ | PROT_WRITE) != 0) {
        std::perror("mprotect");
        std::abort();
    }
    *slot = function;
}

// Compilers' and sanitizers' own, and variants of what is left alone.
bool is_internal(std::string_view name) {
    return name.starts_with("_");
}

} // namespace

std::optional<std::string> install() {
    const Object library = find_library();
    library_begin = library.base;
    const ElfW(Sym)* symbols = nullptr;
    const char* names = nullptr;
    struct Relocations {
        const ElfW(Rela) * first = nullptr;
        std::size_t bytes = 0;
    };
    Relocations data;
    Relocations jumps;
    for (const auto* entry = library.dynamic; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
        const auto at = entry->d_un.d_ptr;
        switch (entry->d_tag) {
        case DT_SYMTAB:
            symbols = reinterpret_cast<const ElfW(Sym)*>(at);
            break;
        case DT_STRTAB:
            names = reinterpret_cast<const char*>(at);
            break;
        case DT_RELA:
            data.first = reinterpret_cast<const ElfW(Rela)*>(at);
            break;
        case DT_RELASZ:
            data.bytes = entry->d_un.d_val;
            break;
        case DT_JMPREL:
            jumps.first = reinterpret_cast<const ElfW(Rela)*>(at);
            break;
        case DT_PLTRELSZ:
            jumps.bytes = entry->d_un.d_val;
            break;
        default:
            break;
        }
    }
    if (symbols == nullptr || names == nullptr) {
        return "the library itself";
    }
    std::string unknown;
    for (const Relocations& relocations : {data, jumps}) {
        for (std::size_t i = 0; i < relocations.bytes / sizeof(ElfW(Rela)); ++i) {
            const auto& relocation = relocations.first[i];
            const auto type = ELF64_R_TYPE(relocation.r_info);
            if (type != R_X86_64_GLOB_DAT && type != R_X86_64_JUMP_SLOT && type != R_X86_64_64) {
                continue;
            }
            const auto& symbol = symbols[ELF64_R_SYM(relocation.r_info)];
            const std::string_view name = names + symbol.st_name;
            const auto* const found = std::find_if(std::begin(entries), std::end(entries),
                                                   [=](const Entry& one) { return one.name == name; });
            if (found != std::end(entries)) {
                put(reinterpret_cast<void**>(library.base + relocation.r_offset), found->function);
            } else if (symbol.st_shndx == SHN_UNDEF && !is_internal(name) &&
                       std::find(std::begin(left_alone), std::end(left_alone), name) == std::end(left_alone)) {
                unknown += std::string(name) + " ";
            }
        }
    }
    return unknown.empty() ? std::nullopt : std::optional(unknown);
}

void begin(Plan plan) {
    own = {};
    own.is_main = true;
    all_locks_held = 0;
    current.family = plan.family;
    current.call = plan.call;
    current.for_good = plan.for_good;
    current.came = false;
    current.failed_calls = 0;
    current.keeps_queue = false;
    current.naps = 0;
    for (auto& count : current.counts) {
        count = 0;
    }
    current.running = true;
}

std::array<unsigned int, groups> counts() {
    std::array<unsigned int, groups> counted{};
    std::copy(current.counts.begin(), current.counts.end(), counted.begin());
    return counted;
}

bool came_true() {
    return current.came;
}

unsigned int failed_calls() {
    return current.failed_calls;
}

bool keeps_queue() {
    return current.keeps_queue;
}

void end() {
    current.running = false;
}

Truce::Truce() : former_(own.truce) {
    own.truce = true;
}
Truce::~Truce() {
    own.truce = former_;
}

std::size_t blocks() {
    const std::lock_guard guard(held_blocks().mutex);
    return held_blocks().held.size();
}

std::string block_call() {
    const std::lock_guard guard(held_blocks().mutex);
    if (held_blocks().held.empty()) {
        return "";
    }
    char text[64];
    std::snprintf(
        text, sizeof text, "libvxpadcom.so+0x%zx",
        static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(held_blocks().held.begin()->second) - library_begin));
    return text;
}

void given_up(void* block) {
    give_back(block);
}

int locks_held() {
    return all_locks_held;
}
int locks_held_here() {
    return own.locks;
}

std::int64_t spent_us() {
    return own.spent_us;
}

unsigned int naps() {
    return current.naps;
}

} // namespace faults
