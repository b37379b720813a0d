#include <cerrno>

#include "mtf_backup/set/set_store.h"
#include "mtf_backup/test/store_fixture.h"

namespace {

using MTF_BACKUP::Commit_Record;
using MTF_BACKUP::Set_Id;
using MTF_BACKUP::Set_Store;
using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Log_Capture;
using test_support::Memory_Client_IO;

typedef std::vector<std::string> Dirs;

/// Sets of one object each, which build on each other.
class Removal : public Store_Fixture {
 protected:
  Set_Id make_set(uint32_t seq, const Dirs& chain = {}, const std::string& name = "a") {
    const Set_Id id{name, seq, 1};
    put(id.dir() + "/catalog");
    EXPECT_TRUE(store_.commit(id, record(chain)));
    return id;
  }
  static Commit_Record record(const Dirs& chain = {}) {
    Commit_Record made;
    made.set_uuid = "uuid";
    made.objects = {{"catalog", 5, std::string(32, '0')}};
    if (!chain.empty()) made.base = chain.back();
    for (const std::string& dir : chain) made.chain.push_back({dir, "uuid"});
    return made;
  }
  void put(const std::string& key) { pool_->objects[key] = "bytes"; }

  static std::string error_line(const std::string& text) { return std::to_string(LM_ERROR) + " " + text; }

  Dirs left() {
    Dirs dirs;
    EXPECT_TRUE(store_.list([&](const Set_Id& id, const Commit_Record&) {
      dirs.push_back(id.dir());
      return true;
    }));
    return dirs;
  }
  Dirs dependents_of(const Set_Id& id) {
    std::vector<Set_Id> sets{{"old", 1, 1}};
    EXPECT_TRUE(store_.dependents(id, sets));
    Dirs dirs;
    for (const Set_Id& set : sets) dirs.push_back(set.dir());
    return dirs;
  }

  const std::shared_ptr<Memory_Client_IO> storage_ = std::make_shared<Memory_Client_IO>(pool_);
  Set_Store store_{storage_};
};

TEST_F(Removal, DependentsAreTheSetsWhoseChainNamesIt) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  const Set_Id three = make_set(3, {one.dir(), two.dir()});
  const Set_Id four = make_set(4, {three.dir()});
  EXPECT_EQ(dependents_of(one), (Dirs{two.dir(), three.dir()}));
  EXPECT_EQ(dependents_of(three), Dirs{four.dir()});
  EXPECT_EQ(dependents_of(four), Dirs{});
  EXPECT_EQ(dependents_of({"a", 9, 1}), Dirs{});
}

TEST_F(Removal, ASetThatAnotherBuildsOnStays) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  const auto before = pool_->objects;
  Log_Capture log;
  EXPECT_FALSE(store_.remove(one));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(log.all(), error_line("Set a/0000000001.1 is not removed: set a/0000000002.1 builds on it.\n"));
  EXPECT_EQ(pool_->objects, before);
  EXPECT_TRUE(store_.remove(two));
  EXPECT_TRUE(store_.remove(one));
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Removal, OneThatHasToStayKeepsAllOfThem) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  const Set_Id three = make_set(3, {one.dir()});
  Log_Capture log;
  EXPECT_FALSE(store_.remove({two, one}));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(left(), (Dirs{one.dir(), two.dir(), three.dir()}));
}

TEST_F(Removal, SetsGoBeforeThoseTheyBuildOnWhereverItStops) {
  for (int nth = 0;; ++nth) {
    pool_->objects.clear();
    // The numbers wrap around, and so tell nothing of the order.
    const Set_Id one = make_set(4294967295u);
    const Set_Id two = make_set(0, {one.dir()});
    const Set_Id three = make_set(1, {two.dir(), one.dir()});
    const Set_Id other = make_set(7, {}, "b");
    Fault_Plan plan(Fault_Plan::REMOVE, nth);
    Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
    Log_Capture log;
    const bool done = failing.remove({two, one, three});
    const Dirs dirs = left();
    const auto has = [&](const Set_Id& id) { return std::find(dirs.begin(), dirs.end(), id.dir()) != dirs.end(); };
    EXPECT_TRUE(has(one) || !has(two)) << nth;
    EXPECT_TRUE((has(one) && has(two)) || !has(three)) << nth;
    EXPECT_TRUE(has(other));
    EXPECT_EQ(done, !plan.struck());
    if (done) {
      EXPECT_EQ(dirs.size(), 1u);
      EXPECT_GE(nth, 3);  // at least a record of each set
      break;
    }
  }
}

TEST_F(Removal, ADamagedRecordNeedsNothing) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  pool_->objects[two.dir() + "/commit"][70] ^= 1;
  Log_Capture log;
  EXPECT_EQ(dependents_of(one), Dirs{});
  EXPECT_TRUE(store_.remove(one));
}

TEST_F(Removal, ARecordThatCannotBeReadStopsIt) {
  const Set_Id one = make_set(1);
  make_set(2, {one.dir()});
  const auto before = pool_->objects;
  Fault_Plan plan(Fault_Plan::OPEN, 0, EIO);
  Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
  Log_Capture log;
  EXPECT_FALSE(failing.remove(one));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(pool_->objects, before);
}

TEST_F(Removal, TheCallerIsToldOfEachThatIsGoneAndMayStopIt) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  const Set_Id three = make_set(3, {one.dir(), two.dir()});
  Dirs told;
  Log_Capture log;
  EXPECT_FALSE(store_.remove({one, two, three}, [&](const Set_Id& id) {
    EXPECT_FALSE(pool_->objects.contains(id.dir() + "/catalog"));
    told.push_back(id.dir());
    return told.size() < 2;
  }));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(told, (Dirs{three.dir(), two.dir()}));
  EXPECT_EQ(left(), Dirs{one.dir()});
  EXPECT_EQ(log.all(), "");
  EXPECT_TRUE(store_.remove({one}, [](const Set_Id&) { return false; })) << "nothing was left to stop";
}

TEST_F(Removal, SetsThatNeedEachOtherInACircleGoToo) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2, {one.dir()});
  Commit_Record record;
  ASSERT_TRUE(store_.read(one.dir(), record));
  record.base = two.dir();
  record.chain = {{two.dir(), "uuid"}};
  pool_->objects[one.dir() + "/commit"] = record.to_text();
  EXPECT_TRUE(store_.remove({one, two}));
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Removal, ASweepLeavesWhatAChainNames) {
  const Set_Id one = make_set(1);
  make_set(2, {one.dir()});
  pool_->objects.erase(one.dir() + "/commit");
  put("a/0000000003.1/catalog");
  ASSERT_TRUE(store_.sweep());
  EXPECT_TRUE(pool_->objects.count("a/0000000001.1/catalog"));
  EXPECT_FALSE(pool_->objects.count("a/0000000003.1/catalog"));
}

TEST_F(Removal, ASetIsNotCommittedWithoutTheSetsOfItsChain) {
  put("a/0000000002.1/catalog");
  Log_Capture log;
  EXPECT_FALSE(store_.commit({"a", 2, 1}, record({"a/0000000001.1"})));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log.all(), error_line("Object \"a/0000000001.1/commit\" is missing.\n"));
  EXPECT_EQ(left(), Dirs{});
}

TEST_F(Removal, ObjectsAreCountedAndMeasured) {
  const Set_Id one = make_set(1);
  Commit_Record record;
  ASSERT_TRUE(store_.read(one.dir(), record));
  std::string problem = "none";
  EXPECT_TRUE(store_.has_objects(one.dir(), record, problem));
  EXPECT_EQ(problem, "none");
  pool_->objects[one.dir() + "/catalog"] += "x";
  EXPECT_FALSE(store_.has_objects(one.dir(), record, problem));
  EXPECT_EQ(problem, "object a/0000000001.1/catalog has another size");
  pool_->objects.erase(one.dir() + "/catalog");
  EXPECT_FALSE(store_.has_objects(one.dir(), record, problem));
  EXPECT_EQ(problem, "object a/0000000001.1/catalog is missing");
  Fault_Plan plan(Fault_Plan::LIST, 0, EIO);
  Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
  Log_Capture log;
  EXPECT_FALSE(failing.has_objects(one.dir(), record, problem));
  EXPECT_EQ(problem, "the objects cannot be listed (Input/output error)");
}

TEST_F(Removal, WhatWasGivenUpGoesWithAClientThatWasCancelled) {
  const Set_Id whole = make_set(1);
  const Set_Id given_up{"a", 2, 1};
  put(given_up.dir() + "/catalog");
  put("b/0000000002.1/catalog");
  storage_->cancel();
  EXPECT_TRUE(store_.discard(given_up, {{"catalog", 5, ""}}));
  EXPECT_FALSE(pool_->objects.contains(given_up.dir() + "/catalog"));
  EXPECT_TRUE(pool_->objects.contains(whole.dir() + "/catalog"));
  EXPECT_TRUE(pool_->objects.contains("b/0000000002.1/catalog"));
}

TEST_F(Removal, ASetThatWasCommittedIsNotDiscarded) {
  const Set_Id whole = make_set(1);
  EXPECT_TRUE(store_.discard(whole, {{"catalog", 5, ""}}));
  EXPECT_EQ(left(), Dirs{whole.dir()});
  EXPECT_TRUE(pool_->objects.contains(whole.dir() + "/catalog"));
}

TEST_F(Removal, WhoGivesUpLeavesTheObjectsOfAnotherWriter) {
  const Set_Id shared{"a", 1, 1};
  put(shared.dir() + "/channel-000.mtf");
  put(shared.dir() + "/channel-001.mtf");
  EXPECT_TRUE(store_.discard(shared, {{"channel-001.mtf", 5, ""}}));
  EXPECT_TRUE(pool_->objects.contains(shared.dir() + "/channel-000.mtf"));
  EXPECT_FALSE(pool_->objects.contains(shared.dir() + "/channel-001.mtf"));
}

TEST_F(Removal, MarksBeforeItRemovesAndTakesTheMarkLast) {
  const Set_Id one = make_set(1);
  put(one.dir() + "/zzz");
  const std::string mark = one.dir() + "/condemned-";
  const auto marked = [&] { return pool_->objects.lower_bound(mark)->first.starts_with(mark); };
  std::vector<size_t> sizes;
  for (int nth = 0; nth < 3; ++nth) {
    Fault_Plan plan(Fault_Plan::REMOVE, nth, EIO, true);
    Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
    Log_Capture log;
    EXPECT_FALSE(failing.remove(one));
    EXPECT_TRUE(marked());
    sizes.push_back(pool_->objects.size());
  }
  // Each run adds its mark and gets one removal further, beginning with the record.
  EXPECT_EQ(sizes, (std::vector<size_t>{4, 4, 4}));
  EXPECT_FALSE(pool_->objects.contains(one.dir() + "/commit"));
  EXPECT_TRUE(store_.remove(one));
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Removal, WhatARemoverThatWasKilledHasMarkedIsRemovedWhenItIsRunAgain) {
  const Set_Id one = make_set(1);
  put(one.dir() + "/condemned-0123456789abcdef");
  EXPECT_EQ(left(), Dirs{one.dir()}) << "it is listed and read as before";
  EXPECT_TRUE(store_.remove(one));
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Removal, AMarkWithoutASetIsSwept) {
  put("a/0000000001.1/condemned-0123456789abcdef");
  EXPECT_TRUE(store_.sweep());
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Removal, WhoGivesUpTakesTheOwnMarkAwayAndNoOther) {
  const Set_Id one = make_set(1);
  make_set(2, {one.dir()});
  put(one.dir() + "/condemned-0123456789abcdef");
  const auto before = pool_->objects;
  Log_Capture log;
  EXPECT_FALSE(store_.remove(one));
  EXPECT_EQ(pool_->objects, before);
}

TEST_F(Removal, NoSetBuildsOnOneThatIsMarked) {
  const Set_Id one = make_set(1);
  put(one.dir() + "/condemned-0123456789abcdef");
  put("a/0000000002.1/catalog");
  std::string problem;
  EXPECT_FALSE(store_.has_objects(one.dir(), record(), problem));
  EXPECT_EQ(problem, "the removal of set a/0000000001.1 has begun");
  Log_Capture log;
  EXPECT_FALSE(store_.commit({"a", 2, 1}, record({one.dir()})));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(log.all(), error_line("Set a/0000000002.1 is given up: the removal of set a/0000000001.1 has begun.\n"));
  EXPECT_EQ(left(), Dirs{one.dir()});
}

TEST_F(Removal, NoSetBuildsOnOneThatTookThePlaceOfItsBase) {
  const Set_Id one = make_set(1);
  put("a/0000000002.1/catalog");
  Commit_Record other = record({one.dir()});
  other.chain[0].set_uuid = "that of the one before";
  Log_Capture log;
  EXPECT_FALSE(store_.commit({"a", 2, 1}, other));
  EXPECT_EQ(log.all(),
            error_line("Set a/0000000002.1 is given up: set a/0000000001.1, on which it builds, was replaced "
                       "by another one.\n"));
  EXPECT_EQ(left(), Dirs{one.dir()});
}

TEST_F(Removal, AFullPoolCanBeEmptied) {
  for (const int error : {ENOSPC, EDQUOT}) {
    const Set_Id one = make_set(1);
    put("a/0000000002.1/catalog");
    Fault_Plan plan(Fault_Plan::CREATE | Fault_Plan::COMMIT, 0, error, true);
    Set_Store full(std::make_shared<Faulty_Client_IO>(*storage_, plan));
    Log_Capture log;
    EXPECT_TRUE(full.remove(one));
    EXPECT_TRUE(full.sweep());
    EXPECT_TRUE(pool_->objects.empty());
    EXPECT_TRUE(log.has(LM_WARNING, "Set a/0000000001.1 is removed without a mark, for want of space.\n")) << log.all();
  }
}

TEST_F(Removal, NothingIsRemovedWhereNoMarkCanBeMade) {
  const Set_Id one = make_set(1);
  const auto before = pool_->objects;
  Fault_Plan plan(Fault_Plan::COMMIT, 0, EACCES);
  Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
  Log_Capture log;
  EXPECT_FALSE(failing.remove(one));
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(pool_->objects, before);
}

/// Lists all that there is, whatever is asked for.
struct Straying_Client_IO : Memory_Client_IO {
  using Memory_Client_IO::Memory_Client_IO;
  bool list(const std::string&, const List_Callback& each) override { return Memory_Client_IO::list("", each); }
};

TEST_F(Removal, AStorageThatListsWhatWasNotAskedForIsAnError) {
  const Set_Id one = make_set(1);
  const Set_Id two = make_set(2);
  const auto before = pool_->objects;
  pool_->objects["a"] = "";
  Set_Store straying(std::make_shared<Straying_Client_IO>(pool_));
  std::string problem;
  Log_Capture log;
  EXPECT_FALSE(straying.has_objects(one.dir(), record(), problem));
  EXPECT_EQ(problem, "the objects cannot be listed (Input/output error)");
  EXPECT_EQ(log.all(), error_line("The storage lists \"a\" where \"a/0000000001.1/\" was asked for.\n"));
  pool_->objects.erase("a");
  EXPECT_FALSE(straying.discard(one, {}));
  EXPECT_EQ(errno, EIO);
  EXPECT_FALSE(straying.remove(two));
  EXPECT_EQ(errno, EIO);
  for (const auto& [key, bytes] : before)
    EXPECT_TRUE(pool_->objects.contains(key) || key.starts_with(two.dir())) << key;
}

}  // namespace
