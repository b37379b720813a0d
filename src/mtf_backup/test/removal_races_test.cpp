// Writers and removers of one resource side by side, in every order of their operations on the storage.
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "mtf_backup/set/set_store.h"
#include "mtf_backup/test/store_fixture.h"

namespace {

using MTF_BACKUP::Commit_Record;
using MTF_BACKUP::Set_Id;
using MTF_BACKUP::Set_Store;
using test_support::Log_Capture;
using test_support::Memory_Client_IO;

/// Lets threads do one operation at a time, each time the one that is chosen.
class Stage {
 public:
  /// @param ready  the actors that wait, in order. @return which of them goes on, as a number in ready.
  typedef std::function<size_t(const std::vector<size_t>& ready)> Choice;

  void run(const std::vector<std::function<void()>>& actors, const Choice& choose) {
    states_.assign(actors.size(), BUSY);
    std::vector<std::thread> threads;
    for (size_t number = 0; number < actors.size(); ++number)
      threads.emplace_back([&, number] {
        actor_ = number;
        actors[number]();
        set(number, DONE);
      });
    for (std::vector<size_t> ready = waiting(); !ready.empty(); ready = waiting()) set(ready[choose(ready)], BUSY);
    for (std::thread& thread : threads) thread.join();
  }

  /// Called by an actor before each of its operations.
  void step() {
    std::unique_lock<std::mutex> guard(lock_);
    states_[actor_] = WAITING;
    changed_.notify_all();
    changed_.wait(guard, [this] { return states_[actor_] == BUSY; });
  }

 private:
  enum State { BUSY, WAITING, DONE };

  void set(size_t number, State state) {
    std::lock_guard<std::mutex> guard(lock_);
    states_[number] = state;
    changed_.notify_all();
  }
  std::vector<size_t> waiting() {
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait(guard, [this] { return std::find(states_.begin(), states_.end(), BUSY) == states_.end(); });
    std::vector<size_t> ready;
    for (size_t number = 0; number < states_.size(); ++number)
      if (states_[number] == WAITING) ready.push_back(number);
    return ready;
  }

  static thread_local size_t actor_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<State> states_;  // guarded by lock_
};

thread_local size_t Stage::actor_ = 0;

/// Goes through all orders of the operations, one per run.
class Orders {
 public:
  Stage::Choice choice() {
    at_ = 0;
    return [this](const std::vector<size_t>& ready) {
      if (at_ == taken_.size()) taken_.push_back({0, 0});
      taken_[at_].second = ready.size();
      return taken_[at_++].first;
    };
  }
  /// The next order. False: there is none.
  bool next() {
    ++count_;
    while (!taken_.empty() && taken_.back().first + 1 == taken_.back().second) taken_.pop_back();
    if (taken_.empty()) return false;
    ++taken_.back().first;
    return true;
  }
  size_t count() const { return count_; }

 private:
  std::vector<std::pair<size_t, size_t>> taken_;  // at each step: the choice, of how many
  size_t at_ = 0;
  size_t count_ = 0;
};

Stage::Choice random_order(unsigned seed) {
  return [random = std::minstd_rand(seed)](const std::vector<size_t>& ready) mutable {
    return (random() >> 8) % ready.size();
  };
}

/// A client whose operations wait for their turns, and that may die before one of them: then nothing works any more.
class Staged_Client_IO : public Memory_Client_IO {
 public:
  Staged_Client_IO(std::shared_ptr<test_support::Memory_Pool> pool, Stage& stage, size_t life)
      : Memory_Client_IO(std::move(pool)), stage_(stage), life_(life) {}

  std::unique_ptr<Writer> create(const std::string& key) override {
    return std::make_unique<Staged_Writer>(*this, Memory_Client_IO::create(key));
  }
  std::unique_ptr<Reader> open(const std::string& key) override {
    return lives() ? Memory_Client_IO::open(key) : nullptr;
  }
  bool list(const std::string& prefix, const List_Callback& each) override {
    return lives() && Memory_Client_IO::list(prefix, each);
  }
  bool remove(const std::string& key) override { return lives() && Memory_Client_IO::remove(key); }

  bool is_dead() const { return dead_; }

 private:
  struct Staged_Writer : Writer {
    Staged_Writer(Staged_Client_IO& client, std::unique_ptr<Writer> next) : client_(client), next_(std::move(next)) {}
    bool write(const void* data, size_t n) override { return next_->write(data, n); }
    bool commit() override { return client_.lives() && next_->commit(); }
    uint64_t size() const override { return next_->size(); }

    Staged_Client_IO& client_;
    const std::unique_ptr<Writer> next_;
  };

  bool lives() {
    dead_ = dead_ || life_ == 0;
    if (dead_) {
      errno = EIO;
      return false;
    }
    --life_;
    stage_.step();
    return true;
  }

  Stage& stage_;
  size_t life_;
  bool dead_ = false;
};

constexpr size_t for_ever = SIZE_MAX;

class Races : public Store_Fixture {
 protected:
  static Commit_Record record(const std::string& base = "") {
    Commit_Record made;
    made.set_uuid = "uuid";
    if (base.empty()) {
      made.objects = {{"catalog", 5, std::string(32, '0')}};
    } else {
      made.base = base;
      made.chain = {{base, "uuid"}};
    }
    return made;
  }
  std::shared_ptr<Staged_Client_IO> client(size_t life = for_ever) {
    return std::make_shared<Staged_Client_IO>(pool_, stage_, life);
  }
  void put(const std::string& key) { pool_->objects[key] = "bytes"; }
  bool has(const Set_Id& id) const { return pool_->objects.contains(id.dir() + "/commit"); }
  bool is_whole(const Set_Id& id) const { return has(id) && pool_->objects.contains(id.dir() + "/catalog"); }

  const Set_Id base_{"a", 1, 1};
  const Set_Id next_{"a", 2, 1};
  Stage stage_;
  Set_Store store_{std::make_shared<Memory_Client_IO>(pool_)};
};

TEST_F(Races, ASetThatIsCommittedBesideASweepIsWholeOrGone) {
  Orders orders;
  size_t stood = 0, gave_up = 0;
  do {
    pool_->objects.clear();
    put(base_.dir() + "/catalog");
    bool committed = false;
    bool swept = false;
    Log_Capture log;
    stage_.run({[&] { committed = Set_Store(client()).commit(base_, record()); },
                [&] { swept = Set_Store(client()).sweep(); }},
               orders.choice());
    ASSERT_TRUE(swept);
    ASSERT_EQ(committed, has(base_));
    ASSERT_EQ(committed, is_whole(base_));
    ASSERT_EQ(pool_->objects.size(), committed ? 2 : has(base_) + pool_->objects.count(base_.dir() + "/catalog"));
    ++(committed ? stood : gave_up);
  } while (orders.next());
  EXPECT_GT(stood, 1u);
  EXPECT_GT(gave_up, 1u);
  std::printf("%zu orders\n", orders.count());
}

class Races_On_A_Base : public Races {
 protected:
  /// A writer that builds on the base, and a remover of that which dies behind so many operations.
  /// @return whether it died.
  bool race(size_t life, const Stage::Choice& choice) {
    pool_->objects.clear();
    put(base_.dir() + "/catalog");
    EXPECT_TRUE(store_.commit(base_, record()));
    const auto remover = client(life);
    Log_Capture log;
    stage_.run({[&] { committed_ = Set_Store(client()).commit(next_, record(base_.dir())); },
                [&] { removed_ = Set_Store(remover).remove(base_); }},
               choice);
    return remover->is_dead();
  }
  void expect_nothing_lost() const {
    ASSERT_EQ(committed_, has(next_));
    ASSERT_TRUE(!committed_ || is_whole(base_));
    ASSERT_TRUE(!removed_ || !has(base_));
    ASSERT_TRUE(!has(base_) || is_whole(base_));
  }
  size_t marks() const {
    return static_cast<size_t>(std::count_if(pool_->objects.begin(), pool_->objects.end(), [](const auto& object) {
      return object.first.find("/condemned-") != std::string::npos;
    }));
  }

  bool committed_ = false;
  bool removed_ = false;
};

TEST_F(Races_On_A_Base, WhatBuildsOnASetStandsWithItOrNotAtAll) {
  Orders orders;
  size_t committed = 0, removed = 0;
  do {
    ASSERT_FALSE(race(for_ever, orders.choice()));
    expect_nothing_lost();
    ASSERT_EQ(marks(), 0u);
    committed += committed_;
    removed += removed_;
  } while (!HasFatalFailure() && orders.next());
  EXPECT_GT(committed, 1u);
  EXPECT_GT(removed, 1u);
  std::printf("%zu orders: the new set stands in %zu, the old one goes in %zu\n", orders.count(), committed, removed);
}

TEST_F(Races_On_A_Base, ARemoverThatIsKilledLosesNothingAndMayBeRunAgain) {
  bool died = true;
  for (size_t life = 0; died; ++life) {
    died = false;
    for (unsigned seed = 0; seed < 60; ++seed) {
      SCOPED_TRACE(std::to_string(life) + " operations, seed " + std::to_string(seed));
      died = race(life, random_order(seed)) || died;
      expect_nothing_lost();
      Log_Capture log;
      ASSERT_EQ(store_.remove(base_), !committed_);
      ASSERT_EQ(is_whole(base_), committed_);
      ASSERT_TRUE(committed_ || store_.sweep());
      ASSERT_TRUE(committed_ || pool_->objects.empty());
    }
  }
}

TEST_F(Races_On_A_Base, TwoRemoversTakeNothingFromEachOther) {
  size_t committed = 0, removed = 0;
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    pool_->objects.clear();
    put(base_.dir() + "/catalog");
    ASSERT_TRUE(store_.commit(base_, record()));
    bool also_removed = false;
    Log_Capture log;
    stage_.run({[&] { committed_ = Set_Store(client()).commit(next_, record(base_.dir())); },
                [&] { removed_ = Set_Store(client()).remove(base_); },
                [&] { also_removed = Set_Store(client()).remove(base_); }},
               random_order(seed));
    removed_ = removed_ || also_removed;
    expect_nothing_lost();
    if (HasFatalFailure()) return;
    ASSERT_EQ(marks(), 0u);
    committed += committed_;
    removed += removed_;
  }
  EXPECT_GT(committed, 1u);
  EXPECT_GT(removed, 1u);
}

}  // namespace
