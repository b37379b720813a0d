#include "kolt/thread_helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <new>
#include <stdexcept>

#include "support/log_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

typedef ACE_Message_Queue_Ex<Thread_Pool_Helper::function_type, ACE_MT_SYNCH, ACE_System_Time_Policy> Queue;

/// A queue whose next operations at the tail end as told, before it works as usual.
class Scripted_Queue : public Queue {
 public:
  int enqueue_tail(Thread_Pool_Helper::function_type* item, ACE_Time_Value* timeout) override {
    ++calls;
    if (failures_left > 0) {
      --failures_left;
      errno = error;
      return result;
    }
    return Queue::enqueue_tail(item, timeout);
  }

  int calls = 0;
  int failures_left = 0;
  int error = 0;
  int result = -1;
};

/// A function object that finds no memory when it is copied.
struct Uncopyable_Work {
  Uncopyable_Work() = default;
  Uncopyable_Work(const Uncopyable_Work& other) : armed(other.armed) {
    if (*armed) throw std::bad_alloc();
  }
  void operator()() const {}
  std::shared_ptr<bool> armed = std::make_shared<bool>(false);
};

class Thread_Pool_Helper_Test : public testing::Test {
 protected:
  int put(Thread_Pool_Helper& pool, const Thread_Pool_Helper::function_type& fn, bool front = false) {
    ACE_Time_Value now = ACE_Time_Value::zero;
    return pool.putq(fn, front, &now);
  }

  test_support::Log_Capture log_;
};

/// Keeps the only worker of a pool busy until it is let go.
class Busy_Worker {
 public:
  explicit Busy_Worker(Thread_Pool_Helper& pool) {
    const auto begun = std::make_shared<std::promise<void>>();
    pool.putq(
        [begun, go = go_.get_future().share()] {
          begun->set_value();
          go.wait();
        },
        false, nullptr);
    begun->get_future().wait();
  }
  void release() { go_.set_value(); }

 private:
  std::promise<void> go_;
};

TEST_F(Thread_Pool_Helper_Test, EachQueuedFunctionIsRunOnce) {
  std::atomic<int> runs{0};
  Thread_Pool_Helper pool("test", 3);
  ASSERT_EQ(0, pool.open(1000, 0));
  for (int i = 0; i < 500; ++i) ASSERT_GT(pool.schedule(ACE_Time_Value::max_time, [&runs] { ++runs; }), 0);
  pool.shutdown();
  EXPECT_EQ(500, runs);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Thread_Pool_Helper_Test, ThreadCountTellsTheLiveWorkers) {
  Thread_Pool_Helper pool("test", 3);
  EXPECT_EQ(0u, pool.thr_count());
  ASSERT_EQ(0, pool.open(10, 0));
  EXPECT_EQ(3u, pool.thr_count());
  pool.shutdown();
  EXPECT_EQ(0u, pool.thr_count());
}

TEST_F(Thread_Pool_Helper_Test, WithoutWorkersNothingIsQueued) {
  Thread_Pool_Helper pool("test", 0);
  ASSERT_EQ(0, pool.open(10, 0));
  EXPECT_EQ(-1, put(pool, [] {}));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("No active worker thread!\n"));
}

TEST_F(Thread_Pool_Helper_Test, AfterShutdownNothingIsQueued) {
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(10, 0));
  pool.shutdown();
  EXPECT_EQ(-1, put(pool, [] {}));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("No active worker thread!\n"));
}

TEST_F(Thread_Pool_Helper_Test, OperationInterruptedBySignalIsRepeatedWithoutLogLine) {
  Scripted_Queue queue;
  std::atomic<int> runs{0};
  {
    Thread_Pool_Helper pool("test", 1);
    pool.msg_queue(&queue);
    ASSERT_EQ(0, pool.open(10, 0));
    queue.failures_left = 3;
    queue.error = EINTR;
    EXPECT_EQ(1, put(pool, [&runs] { ++runs; }));
    EXPECT_EQ(4, queue.calls);
  }
  EXPECT_EQ(1, runs);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Thread_Pool_Helper_Test, OtherErrorIsLoggedAndReturned) {
  Scripted_Queue queue;
  Thread_Pool_Helper pool("test", 1);
  pool.msg_queue(&queue);
  ASSERT_EQ(0, pool.open(10, 0));
  queue.failures_left = 1;
  queue.error = EWOULDBLOCK;
  EXPECT_EQ(-1, put(pool, [] {}));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("Failed to schedule task, errno=11, Resource temporarily unavailable\n"));
  pool.shutdown();
}

TEST_F(Thread_Pool_Helper_Test, ResultZeroIsAFailure) {
  Scripted_Queue queue;
  Thread_Pool_Helper pool("test", 1);
  pool.msg_queue(&queue);
  ASSERT_EQ(0, pool.open(10, 0));
  queue.failures_left = 1;
  queue.result = 0;
  queue.error = EINTR;  // only a negative result is repeated
  EXPECT_EQ(0, put(pool, [] {}));
  EXPECT_EQ(1, queue.calls);
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to schedule task, errno=4, Interrupted system call\n"));
  pool.shutdown();
}

TEST_F(Thread_Pool_Helper_Test, CopyWithoutMemoryIsRefusedInSilence) {
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(10, 0));
  const Uncopyable_Work work;
  const Thread_Pool_Helper::function_type fn(work);
  *work.armed = true;
  errno = 0;
  EXPECT_EQ(-1, put(pool, fn));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Thread_Pool_Helper_Test, FullQueueRefusesWhenTheTimeoutIsOver) {
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(2, 0));
  Busy_Worker busy(pool);
  EXPECT_EQ(1, put(pool, [] {}));
  EXPECT_EQ(2, put(pool, [] {}));
  EXPECT_EQ(-1, put(pool, [] {}));
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
  busy.release();
}

TEST_F(Thread_Pool_Helper_Test, FrontIsRunAheadOfAllThatWaits) {
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(10, 0));
  Busy_Worker busy(pool);
  std::vector<std::string> order;
  put(pool, [&order] { order.push_back("tail"); });
  put(
      pool, [&order] { order.push_back("front"); }, true);
  busy.release();
  pool.shutdown();
  EXPECT_THAT(order, ElementsAre("front", "tail"));
}

TEST_F(Thread_Pool_Helper_Test, ExceptionIsLoggedAndTheWorkerGoesOn) {
  std::atomic<int> runs{0};
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(10, 0));
  put(pool, [] { throw std::runtime_error("no luck"); });
  put(pool, [&runs] { ++runs; });
  pool.shutdown();
  EXPECT_EQ(1, runs);
  EXPECT_TRUE(log_.has(LM_ERROR, "Exception in a function of pool 'test': no luck\n"));
}

TEST_F(Thread_Pool_Helper_Test, EmptyFunctionDoesNothing) {
  std::atomic<int> runs{0};
  Thread_Pool_Helper pool("test", 1);
  ASSERT_EQ(0, pool.open(10, 0));
  EXPECT_GT(put(pool, Thread_Pool_Helper::EMPTY), 0);
  EXPECT_GT(put(pool, [&runs] { ++runs; }), 0);
  pool.shutdown();
  EXPECT_EQ(1, runs);
}

TEST_F(Thread_Pool_Helper_Test, NiceValueIsThatOfTheWorkersAlone) {
  const int own = getpriority(PRIO_PROCESS, 0);
  std::atomic<int> of_worker{-100};
  Thread_Pool_Helper pool("test", 1);
  pool.scheduling(-1, 7, -1);
  ASSERT_EQ(0, pool.open(10, 0));
  put(pool, [&of_worker] { of_worker = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid))); });
  pool.shutdown();
  EXPECT_EQ(7, of_worker);
  EXPECT_EQ(own, getpriority(PRIO_PROCESS, 0));
}

}  // namespace
