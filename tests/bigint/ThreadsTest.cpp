// Two threads that compute at once, each with records of its own.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

// Calls of every function that repeat the same computation and check its result.
class Work {
public:
    explicit Work(uint64_t seed) : m_numbers(seed) {
        for (const Operation& operation : Operations())
            AddOperation(operation);
        AddForms();
    }

    size_t Size() const { return m_tasks.size(); }
    // Runs a task several times and records its name after a wrong result.
    void Repeat(size_t task, int times) {
        for (int i = 0; i < times; ++i) {
            if (!m_tasks[task].isCorrect()) {
                m_wrong += m_tasks[task].name + " ";
                return;
            }
        }
    }
    const std::string& Wrong() const { return m_wrong; }

private:
    struct Task {
        std::string name;
        std::function<bool()> isCorrect;
    };

    void AddOperation(const Operation& operation) {
        const unsigned extra = m_numbers.ExtraFor(operation, 1500);
        const Call* call =
            &m_calls.emplace_back(operation, extra, m_numbers.OperandsFor(operation, 1500), "5");
        const int code = call->Run();
        std::vector<std::string> expected;
        for (const Integer& result : call->results)
            expected.push_back(Hex(result));
        m_tasks.push_back({operation.name, [=, digit = call->digit] {
                               return call->Run() == code && call->digit == digit &&
                                      std::equal(expected.begin(), expected.end(),
                                                 call->results.begin(),
                                                 [](const std::string& hex, const Integer& result) {
                                                     return Hex(result) == hex;
                                                 });
                           }});
    }

    void AddForms() {
        const std::string hex = m_numbers.Signed(3000);
        const Integer& value = m_records.emplace_back(hex);
        mp_int* read = m_records.emplace_back(hex);
        std::string text(4000, '\0');
        mp_toradix(value, text.data(), 10);
        std::string bytes(400, '\0');
        mp_to_signed_bin(value, Bytes(bytes));
        const int length = mp_signed_bin_size(value);
        m_tasks.push_back({"mp_toradix", [&value, text, to = text]() mutable {
                               return mp_toradix(value, to.data(), 10) == MP_SUCCESS && to == text;
                           }});
        m_tasks.push_back({"mp_read_radix", [read, hex, text] {
                               return mp_read_radix(read, text.c_str(), 10) == MP_SUCCESS &&
                                      Hex(read) == hex;
                           }});
        m_tasks.push_back({"mp_to_signed_bin", [&value, bytes, to = bytes]() mutable {
                               return mp_to_signed_bin(value, Bytes(to)) == MP_SUCCESS &&
                                      to == bytes;
                           }});
        m_tasks.push_back({"mp_read_signed_bin", [read, hex, from = bytes, length]() mutable {
                               return mp_read_signed_bin(read, Bytes(from), length) == MP_SUCCESS &&
                                      Hex(read) == hex;
                           }});
    }

    static unsigned char* Bytes(std::string& text) {
        return reinterpret_cast<unsigned char*>(text.data());
    }

    Numbers m_numbers;
    std::deque<Call> m_calls;
    std::deque<Integer> m_records;
    std::vector<Task> m_tasks;
    std::string m_wrong;
};

TEST(Threads, ComputeIndependently) {
    Work first(1);
    Work second(2);
    // Both threads start each task together, so that they run the same function at once.
    pthread_barrier_t barrier;
    pthread_barrier_init(&barrier, nullptr, 2);
    const auto run = [&](Work* work) {
        for (size_t task = 0; task < work->Size(); ++task) {
            pthread_barrier_wait(&barrier);
            work->Repeat(task, 300);
        }
    };
    std::thread other(run, &first);
    run(&second);
    other.join();
    pthread_barrier_destroy(&barrier);
    EXPECT_EQ(first.Wrong() + second.Wrong(), "");
}

}  // namespace
