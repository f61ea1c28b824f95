// The threads that the tear-down waits for: the library's own, detached and with a small stack, and the application's
// while they are inside a call that uses a pad.
#pragma once

namespace detached_thread {

// Whoever comes between close() and open() is not admitted, unless its thread is counted already.
void open();
void close();
bool is_open();
unsigned int times_opened();

// 0, or what failed. The routine calls began() first and left() last of all.
int create(void* (*routine)(void*), void* argument);
void began();
void left();

// Runs body(argument) on a thread of its own: 0, or what failed.
template <auto body, typename Argument> int start(Argument* argument) {
    return create(
        [](void* passed) -> void* {
            began();
            body(static_cast<Argument*>(passed));
            left();
            return nullptr;
        },
        argument);
}

// Counts the calling thread as long as it lives, where it is admitted.
class Counted {
  public:
    Counted();
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    unsigned int round_;
    bool counts_;
};

// Whether the tear-down waits for the calling thread, which then must not wait for the tear-down.
bool is_counted();

// Ends what the calling thread's Counted have begun: it is about to run a callback that may search again, and uses no
// record of a pad any more. A thread of the library stays counted, and so does a call inside a logging callback: the
// call that this one interrupts goes on with its records.
void give_up();

// Waits until none is left; none of them may call it.
void wait_for_all();

} // namespace detached_thread
