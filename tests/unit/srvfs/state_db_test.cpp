// The emulator's SQLite helpers: directory creation, WAL mode, error texts, two connections.
#include <stdlib.h>

#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "state_db.h"

namespace {

class StateDbTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/vks-state-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        dir_ = dir;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string dir_;
};

TEST_F(StateDbTest, OpensInWalModeCreatingItsDirectoryAndRunsTheSchema) {
    std::string error;
    auto db =
        vks_state::Database::Open(dir_ + "/a/b/state.db", "CREATE TABLE t (k INTEGER, v TEXT);", &error);
    ASSERT_NE(nullptr, db) << error;
    {
        // A statement that stopped on a row keeps its transaction open: scope it.
        vks_state::Statement mode(*db, "PRAGMA journal_mode");
        ASSERT_TRUE(mode.Step());
        EXPECT_EQ("wal", mode.Text(0));
    }

    vks_state::Statement insert(*db, "INSERT INTO t VALUES (?, ?)");
    EXPECT_FALSE(insert.Bind(1, int64_t{-5}).Bind(2, std::string("five")).Step());
    EXPECT_TRUE(insert.Ok()) << insert.Error();

    // A second connection on the same file sees the row.
    auto other = vks_state::Database::Open(dir_ + "/a/b/state.db", "", &error);
    ASSERT_NE(nullptr, other) << error;
    vks_state::Statement query(*other, "SELECT k, v FROM t");
    ASSERT_TRUE(query.Step());
    EXPECT_EQ(-5, query.Int64(0));
    EXPECT_EQ("five", query.Text(1));
}

TEST_F(StateDbTest, BlobsKeepEveryByteAndEmptyBlobsAreNotNull) {
    std::string error;
    auto db =
        vks_state::Database::Open(dir_ + "/b.db", "CREATE TABLE b (k INTEGER, v BLOB NOT NULL);", &error);
    ASSERT_NE(nullptr, db) << error;
    // Zero bytes and high bytes are where a text path would cut or mangle the record.
    const std::vector<unsigned char> bytes = {0x00, 0xff, 0x41, 0x00, 0x80, 0x7f};
    vks_state::Statement insert(*db, "INSERT INTO b VALUES (?, ?)");
    EXPECT_FALSE(insert.Bind(1, int64_t{1}).Bind(2, bytes.data(), bytes.size()).Step());
    insert.Reset();
    EXPECT_FALSE(insert.Bind(1, int64_t{2}).Bind(2, nullptr, 0).Step());
    ASSERT_TRUE(insert.Ok()) << insert.Error();

    vks_state::Statement query(*db, "SELECT v, typeof(v) FROM b ORDER BY k");
    ASSERT_TRUE(query.Step());
    EXPECT_EQ(bytes, query.Blob(0));
    EXPECT_EQ("blob", query.Text(1));
    ASSERT_TRUE(query.Step());
    EXPECT_TRUE(query.Blob(0).empty());
    EXPECT_EQ("blob", query.Text(1));
    EXPECT_FALSE(query.Step());
    EXPECT_TRUE(query.Ok()) << query.Error();
}

TEST_F(StateDbTest, ChangesCountsTheRowsTheLastStatementTouched) {
    std::string error;
    auto db = vks_state::Database::Open(dir_ + "/c.db", "CREATE TABLE t (k INTEGER);", &error);
    ASSERT_NE(nullptr, db) << error;
    ASSERT_EQ(0, db->Exec("INSERT INTO t VALUES (1), (2), (3), (4);", &error)) << error;
    EXPECT_EQ(4, db->Changes());
    vks_state::Statement remove(*db, "DELETE FROM t WHERE k > ?");
    EXPECT_FALSE(remove.Bind(1, int64_t{1}).Step());
    EXPECT_EQ(3, db->Changes());
    remove.Reset();
    EXPECT_FALSE(remove.Bind(1, int64_t{10}).Step());
    EXPECT_EQ(0, db->Changes());
}

TEST_F(StateDbTest, ErrorsCarryTheirText) {
    std::string error;
    EXPECT_EQ(nullptr, vks_state::Database::Open(dir_ + "/s.db", "CREATE TABLE (;", &error));
    EXPECT_NE(std::string::npos, error.find("syntax error")) << error;

    auto db = vks_state::Database::Open(dir_ + "/s.db", "", &error);
    ASSERT_NE(nullptr, db);
    EXPECT_EQ(-1, db->Exec("INSERT INTO missing VALUES (1);", &error));
    EXPECT_NE(std::string::npos, error.find("no such table")) << error;
    vks_state::Statement bad(*db, "SELECT v FROM missing");
    EXPECT_FALSE(bad.Ok());
    EXPECT_FALSE(bad.Step());
    EXPECT_NE(std::string::npos, bad.Error().find("no such table")) << bad.Error();

    ASSERT_EQ(0, std::system(("touch " + dir_ + "/file").c_str()));
    EXPECT_EQ(nullptr, vks_state::Database::Open(dir_ + "/file/x.db", "", &error));
    EXPECT_NE(std::string::npos, error.find("cannot create")) << error;
}

}  // namespace
