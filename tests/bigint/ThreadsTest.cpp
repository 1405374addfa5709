// Two threads that compute at once, each with records of its own.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

struct Value {
    explicit Value(const mp_int* mp) : sign(mp->sign), digits(mp->dp, mp->dp + mp->used) {}
    bool Is(const mp_int* mp) const {
        return mp->sign == sign &&
               std::equal(digits.begin(), digits.end(), mp->dp, mp->dp + mp->used);
    }

    uint8_t sign;
    std::vector<mp_digit> digits;
};

struct Task {
    std::string name;
    // Repeats a computation and checks its result.
    std::function<bool()> isCorrect;
};

// One task for each function, with records that belong to this object.
class Work {
public:
    explicit Work(uint64_t seed) : m_numbers(seed), m_value(m_numbers.Signed(3000)) {
        for (const Operation& operation : Operations())
            AddOperation(operation);
        AddForms();
    }

    const std::vector<Task>& Tasks() const { return m_tasks; }

private:
    void AddOperation(const Operation& operation) {
        const unsigned extra = m_numbers.ExtraFor(operation, 1500);
        const Call& call =
            m_calls.emplace_back(operation, extra, m_numbers.OperandsFor(operation, 1500), "5");
        const int code = call.Run();
        const std::vector<Value> expected(call.arguments.results.begin(),
                                          call.arguments.results.end());
        m_tasks.push_back({operation.name, [&call, code, digit = call.digit, expected] {
                               return call.Run() == code && call.digit == digit &&
                                      std::equal(expected.begin(), expected.end(),
                                                 call.arguments.results.begin(),
                                                 [](const Value& value, const mp_int* result) {
                                                     return value.Is(result);
                                                 });
                           }});
    }

    void AddForms() {
        const Value expected(m_value);
        std::string text(4000, '\0');
        mp_toradix(m_value, text.data(), 10);
        std::string bytes(400, '\0');
        mp_to_signed_bin(m_value, Bytes(bytes));
        const int length = mp_signed_bin_size(m_value);
        m_tasks.push_back({"mp_toradix", [this, text, to = text]() mutable {
                               return mp_toradix(m_value, to.data(), 10) == MP_SUCCESS &&
                                      to == text;
                           }});
        m_tasks.push_back({"mp_read_radix", [this, text, expected] {
                               return mp_read_radix(m_read, text.c_str(), 10) == MP_SUCCESS &&
                                      expected.Is(m_read);
                           }});
        m_tasks.push_back({"mp_to_signed_bin", [this, bytes, to = bytes]() mutable {
                               return mp_to_signed_bin(m_value, Bytes(to)) == MP_SUCCESS &&
                                      to == bytes;
                           }});
        m_tasks.push_back({"mp_read_signed_bin", [this, from = bytes, length, expected]() mutable {
                               return mp_read_signed_bin(m_read, Bytes(from), length) ==
                                          MP_SUCCESS &&
                                      expected.Is(m_read);
                           }});
    }

    static unsigned char* Bytes(std::string& text) {
        return reinterpret_cast<unsigned char*>(text.data());
    }

    Numbers m_numbers;
    Integer m_value;
    Integer m_read;
    std::deque<Call> m_calls;
    std::vector<Task> m_tasks;
};

// Long enough to be interrupted within a computation on a machine with a single processor.
constexpr std::chrono::milliseconds timePerTask(10);

bool IsCorrectForAWhile(const Task& task) {
    const auto end = std::chrono::steady_clock::now() + timePerTask;
    while (std::chrono::steady_clock::now() < end) {
        if (!task.isCorrect())
            return false;
    }
    return true;
}

TEST(Threads, ComputeIndependently) {
    const Work first(1);
    const Work second(2);
    pthread_barrier_t barrier;
    pthread_barrier_init(&barrier, nullptr, 2);
    std::atomic<const Task*> wrong = nullptr;
    // The threads start each task together, so that both run the same function. After a wrong
    // result they skip the other tasks, because these could hang.
    const auto run = [&](const Work* work) {
        for (const Task& task : work->Tasks()) {
            pthread_barrier_wait(&barrier);
            if (wrong == nullptr && !IsCorrectForAWhile(task))
                wrong = &task;
        }
    };
    std::thread other(run, &first);
    run(&second);
    other.join();
    pthread_barrier_destroy(&barrier);
    EXPECT_EQ(wrong, nullptr) << wrong.load()->name;
}

}  // namespace
