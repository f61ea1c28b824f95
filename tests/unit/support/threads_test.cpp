#include "support/lines.hpp"

#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

using standins::EnvironmentGuard;
using testing::SizeIs;

namespace {

template <class Call> std::string errors_of(Call call) {
    return lines::written(STDERR_FILENO, call);
}

// One error line without a function's name that ends in the errno text of the failed call's result.
void expect_failure(const std::string& printed, const std::string& function, int number) {
    const auto parsed = lines::parse_errors(printed);
    ASSERT_THAT(parsed, SizeIs(1));
    EXPECT_EQ(parsed.front().text, "error: " + function + "()");
    EXPECT_EQ(parsed.front().reason, std::string(": ") + std::strerror(number));
}

class CheckingMutex {
  public:
    CheckingMutex() {
        pthread_mutexattr_t attributes;
        Pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        Pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~CheckingMutex() { pthread_mutex_destroy(&mutex); }
    CheckingMutex(const CheckingMutex&) = delete;
    CheckingMutex& operator=(const CheckingMutex&) = delete;

    pthread_mutex_t mutex;
};

struct Failure {
    const char* name; // of the wrapper
    int number;
    void (*call)();
    friend std::ostream& operator<<(std::ostream& out, const Failure& one) { return out << one.name; }
};

class ThreadWrapper : public testing::TestWithParam<Failure> {
  protected:
    lines::AllSwitchesOff off_;
};

TEST_P(ThreadWrapper, LogsAFailureAndReturns) {
    std::string function = GetParam().name;
    function.front() = 'p';
    expect_failure(errors_of(GetParam().call), function, GetParam().number);
}

void* nothing(void*) {
    return nullptr;
}

void wait_in_the_past(long nanoseconds) {
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    const timespec deadline{1, nanoseconds};
    pthread_mutex_lock(&mutex);
    Pthread_cond_timedwait(&condition, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&condition);
    pthread_mutex_destroy(&mutex);
}

void make_too_many_keys() {
    std::vector<pthread_key_t> keys;
    pthread_key_t key{};
    while (pthread_key_create(&key, nullptr) == 0) {
        keys.push_back(key);
    }
    Pthread_key_create(&key, nullptr);
    for (const pthread_key_t one : keys) {
        pthread_key_delete(one);
    }
}

INSTANTIATE_TEST_SUITE_P(Failures, ThreadWrapper,
                         testing::Values(Failure{"Pthread_kill", EINVAL, [] { Pthread_kill(pthread_self(), 99999); }},
                                         Failure{"Pthread_mutexattr_setpshared", EINVAL,
                                                 [] {
                                                     pthread_mutexattr_t attributes;
                                                     pthread_mutexattr_init(&attributes);
                                                     Pthread_mutexattr_setpshared(&attributes, 42);
                                                     pthread_mutexattr_destroy(&attributes);
                                                 }},
                                         Failure{"Pthread_mutex_lock", EDEADLK,
                                                 [] {
                                                     CheckingMutex checking;
                                                     pthread_mutex_lock(&checking.mutex);
                                                     Pthread_mutex_lock(&checking.mutex);
                                                     pthread_mutex_unlock(&checking.mutex);
                                                 }},
                                         Failure{"Pthread_cond_timedwait", ETIMEDOUT, [] { wait_in_the_past(0); }},
                                         Failure{"Pthread_setspecific", EINVAL,
                                                 [] { Pthread_setspecific(PTHREAD_KEYS_MAX, "value"); }},
                                         Failure{"Pthread_key_create", EAGAIN, make_too_many_keys}),
                         [](const auto& tested) { return std::string(tested.param.name); });

#if !VXPAD_THREAD_SANITIZER
void create_with_a_stack_that_cannot_be() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 47U);
    pthread_t thread{};
    Pthread_create(&thread, &attributes, nothing, nullptr);
    pthread_attr_destroy(&attributes);
}

void detach_twice() {
    sem_t done;
    sem_init(&done, 0, 0);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    pthread_create(
        &thread, &attributes,
        [](void* semaphore) -> void* {
            Pthread_detach(pthread_self());
            sem_post(static_cast<sem_t*>(semaphore));
            return nullptr;
        },
        &done);
    pthread_attr_destroy(&attributes);
    sem_wait(&done);
    sem_destroy(&done);
}

INSTANTIATE_TEST_SUITE_P(FailuresThatASanitizerReports, ThreadWrapper,
                         testing::Values(Failure{"Pthread_create", EAGAIN, create_with_a_stack_that_cannot_be},
                                         Failure{"Pthread_join", EDEADLK,
                                                 [] { Pthread_join(pthread_self(), nullptr); }},
                                         Failure{"Pthread_detach", EINVAL, detach_twice},
                                         Failure{"Pthread_mutex_unlock", EPERM,
                                                 [] {
                                                     CheckingMutex checking;
                                                     Pthread_mutex_unlock(&checking.mutex);
                                                 }}),
                         [](const auto& tested) { return std::string(tested.param.name); });
#endif

class ThreadWrappers : public testing::Test {
  protected:
    lines::AllSwitchesOff off_;
};

TEST_F(ThreadWrappers, PassTheirArgumentsOnAndStaySilentOnSuccess) {
    struct Shared {
        pthread_mutex_t mutex;
        pthread_cond_t begun = PTHREAD_COND_INITIALIZER;
        bool running = false;
    } shared;

    const std::string printed = errors_of([&] {
        Pthread_mutex_init(&shared.mutex, nullptr);
        Pthread_mutex_lock(&shared.mutex);
        EXPECT_EQ(pthread_mutex_trylock(&shared.mutex), EBUSY);

        pthread_t thread{};
        Pthread_create(
            &thread, nullptr,
            [](void* argument) -> void* {
                Shared& mine = *static_cast<Shared*>(argument);
                Pthread_mutex_lock(&mine.mutex);
                mine.running = true;
                Pthread_cond_signal(&mine.begun);
                Pthread_mutex_unlock(&mine.mutex);
                return &mine.running;
            },
            &shared);
        while (!shared.running) {
            Pthread_cond_wait(&shared.begun, &shared.mutex);
        }
        Pthread_mutex_unlock(&shared.mutex);

        void* result = nullptr;
        Pthread_join(thread, &result);
        EXPECT_EQ(result, &shared.running);
        pthread_mutex_destroy(&shared.mutex);
    });
    EXPECT_EQ(printed, "");
}

TEST_F(ThreadWrappers, BroadcastWakesAllThatWait) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t go = PTHREAD_COND_INITIALIZER;
    pthread_cond_t arrived = PTHREAD_COND_INITIALIZER;
    int waiting = 0;
    bool gone = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            Pthread_mutex_lock(&mutex);
            ++waiting;
            Pthread_cond_signal(&arrived);
            while (!gone) {
                Pthread_cond_wait(&go, &mutex);
            }
            Pthread_mutex_unlock(&mutex);
        });
    }
    Pthread_mutex_lock(&mutex);
    while (waiting < 3) {
        Pthread_cond_wait(&arrived, &mutex);
    }
    gone = true;
    Pthread_cond_broadcast(&go);
    Pthread_mutex_unlock(&mutex);
    for (std::thread& thread : threads) {
        thread.join();
    }
    pthread_cond_destroy(&go);
    pthread_cond_destroy(&arrived);
    pthread_mutex_destroy(&mutex);
}

TEST_F(ThreadWrappers, TimedWaitEndsSilentlyWhenSignalled) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t go = PTHREAD_COND_INITIALIZER;
    bool gone = false;
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 30;
    EXPECT_EQ(errors_of([&] {
                  pthread_mutex_lock(&mutex);
                  std::thread signaller([&] {
                      Pthread_mutex_lock(&mutex);
                      gone = true;
                      Pthread_cond_signal(&go);
                      Pthread_mutex_unlock(&mutex);
                  });
                  while (!gone) {
                      Pthread_cond_timedwait(&go, &mutex, &deadline);
                  }
                  pthread_mutex_unlock(&mutex);
                  signaller.join();
              }),
              "");
    pthread_cond_destroy(&go);
    pthread_mutex_destroy(&mutex);
}

TEST_F(ThreadWrappers, CreateReportsItsSuccessAsInformation) {
    const EnvironmentGuard on(lines::debug_switch, "1");
    const std::string printed = lines::written(STDOUT_FILENO, [] {
        pthread_t thread{};
        Pthread_create(&thread, nullptr, nothing, nullptr);
        Pthread_join(thread, nullptr);
    });
    EXPECT_THAT(printed, testing::HasSubstr("pthread_create return -> 0\n"));
}

TEST_F(ThreadWrappers, KillSendsTheSignalToTheThread) {
    static std::atomic<pthread_t> receiver;
    const auto former = std::signal(SIGUSR1, [](int) { receiver = pthread_self(); });
    Pthread_kill(pthread_self(), SIGUSR1);
    EXPECT_TRUE(pthread_equal(receiver, pthread_self()));
    std::signal(SIGUSR1, former);
}

TEST_F(ThreadWrappers, DetachedThreadsCannotBeJoined) {
    static sem_t go; // the thread may outlive the test
    sem_init(&go, 0, 0);
    pthread_t thread{};
    pthread_attr_t attributes;
    Pthread_create(
        &thread, nullptr,
        [](void* semaphore) -> void* {
            sem_wait(static_cast<sem_t*>(semaphore));
            return nullptr;
        },
        &go);
    Pthread_detach(thread);
    int state = 0;
    ASSERT_EQ(pthread_getattr_np(thread, &attributes), 0);
    EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &state), 0);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    pthread_attr_destroy(&attributes);
    sem_post(&go);
}

TEST_F(ThreadWrappers, SharedMutexesAreMarkedSo) {
    pthread_mutexattr_t attributes;
    Pthread_mutexattr_init(&attributes);
    Pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    int shared = PTHREAD_PROCESS_PRIVATE;
    pthread_mutexattr_getpshared(&attributes, &shared);
    EXPECT_EQ(shared, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_destroy(&attributes);
}

TEST_F(ThreadWrappers, OnceRunsARoutineOnce) {
    static int runs = 0;
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    for (int i = 0; i < 3; ++i) {
        Pthread_once(&once, [] { ++runs; });
    }
    EXPECT_EQ(runs, 1);
}

TEST_F(ThreadWrappers, KeysHoldAValueForEachThreadAndDestroyIt) {
    static std::atomic<const void*> destroyed;
    static pthread_key_t key;
    static const int value = 0;
    Pthread_key_create(&key, [](void* of_thread) { destroyed = of_thread; });
    std::thread([] {
        Pthread_setspecific(key, &value);
        EXPECT_EQ(pthread_getspecific(key), &value);
    }).join();
    EXPECT_EQ(pthread_getspecific(key), nullptr);
    EXPECT_EQ(destroyed, &value);
    pthread_key_delete(key);
}

} // namespace
