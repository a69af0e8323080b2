// Who may use the page, and which files a browser may have.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "firmware/web/Access.h"
#include "firmware/web/PageFiles.h"

namespace mpm::web::test {
namespace {

const std::string kToken = "0123456789abcdef0123456789abcdef";

class WebAccessTest : public testing::Test {
  protected:
    Access m_access{kToken, LoopbackAddress::Parse("8080")};
};

class PageFilesTest : public testing::Test {
  protected:
    PageFilesTest() {
        for (const char* file : {"page/index.html", "page/lab.js", "page/notes.txt", "page/.hidden.js",
                                 "secret.js", "vnc/core/rfb.js", "vnc/app/ui.js", "page/inner/deep.js"}) {
            std::filesystem::create_directories((m_folder / file).parent_path());
            std::ofstream(m_folder / file) << file;
        }
    }
    ~PageFilesTest() override { std::filesystem::remove_all(m_folder); }
    // The content; empty when there is no such file.
    std::string Content(const std::string& name) const {
        const auto file = m_files.Find(name);
        return file ? ReadPageFile(file->path) : "";
    }

    static std::filesystem::path MakeFolder() {
        std::string folder = testing::TempDir() + "page-XXXXXX";
        return mkdtemp(folder.data());
    }

    const std::filesystem::path m_folder = MakeFolder();
    const PageFiles m_files{m_folder / "page", m_folder / "vnc"};
};

}  // namespace

TEST(LoopbackAddressTest, IsAPortOrOneOfTheLoopbackInterface) {
    EXPECT_EQ(LoopbackAddress::Parse("80").Text(), "127.0.0.1:80");
    EXPECT_EQ(LoopbackAddress::Parse("127.0.0.1:0").Text(), "127.0.0.1:0");
    EXPECT_EQ(LoopbackAddress::Parse("[::1]:8080").Text(), "[::1]:8080");
}

TEST(LoopbackAddressTest, NoOtherPlaceIsTaken) {
    for (const char* text : {"", "0.0.0.0:80", "[::]:80", "192.168.1.10:80", "example.org:80", ":80",
                             "127.0.0.1", "127.0.0.1:", "65536", "-1", "80 ", " 80", "127.0.0.1:80x",
                             "127.0.0.2:80", "127.0.0.1.example.org:80"})
        EXPECT_THROW(LoopbackAddress::Parse(text), std::invalid_argument) << text;
}

TEST_F(WebAccessTest, TheUrlHoldsTheToken) {
    EXPECT_EQ(m_access.Url(), "http://127.0.0.1:8080/" + kToken + "/");
}

TEST_F(WebAccessTest, ATokenIsNewEachTime) {
    const std::string token = MakeToken();
    EXPECT_EQ(token.size(), 32u);
    EXPECT_NE(token, MakeToken());
}

TEST_F(WebAccessTest, OnlyTheLoopbackNamesWithThePortAreOwnHosts) {
    for (const char* host : {"127.0.0.1:8080", "localhost:8080", "[::1]:8080"})
        EXPECT_TRUE(m_access.IsOwnHost(host)) << host;
    for (const char* host : {"", "localhost", "127.0.0.1", "127.0.0.1:80", "127.0.0.1:80800",
                             "example.org:8080", "localhost.example.org:8080", "localhost:8080, x"})
        EXPECT_FALSE(m_access.IsOwnHost(host)) << host;
}

TEST_F(WebAccessTest, OnlyItsOwnPagesAreOwnOrigins) {
    EXPECT_TRUE(m_access.IsOwnOrigin("http://127.0.0.1:8080"));
    EXPECT_TRUE(m_access.IsOwnOrigin("http://localhost:8080"));
    for (const char* origin : {"", "null", "127.0.0.1:8080", "https://127.0.0.1:8080",
                               "http://example.org:8080", "http://127.0.0.1:8080/", "http://127.0.0.1:8081"})
        EXPECT_FALSE(m_access.IsOwnOrigin(origin)) << origin;
}

TEST_F(WebAccessTest, OnlyWhatLiesBelowTheTokenIsServed) {
    EXPECT_EQ(m_access.Below("/" + kToken + "/"), "");
    EXPECT_EQ(m_access.Below("/" + kToken + "/a/b.js"), "a/b.js");
    std::string wrong = kToken;
    wrong.back() = 'e';
    for (const std::string& path :
         {std::string(), std::string("/"), "/" + kToken, kToken + "/", "/" + wrong + "/",
          "/" + kToken.substr(1) + "/", "//" + kToken + "/", "/x" + kToken + "/"})
        EXPECT_EQ(m_access.Below(path), std::nullopt) << path;
}

TEST_F(PageFilesTest, ThePageAndTheVncClientAreServed) {
    EXPECT_EQ(Content(""), "page/index.html");
    EXPECT_EQ(Content("lab.js"), "page/lab.js");
    EXPECT_EQ(Content("novnc/core/rfb.js"), "vnc/core/rfb.js");
    EXPECT_TRUE(m_files.HasVncClient());
    EXPECT_STREQ(m_files.Find("lab.js")->type, "text/javascript; charset=utf-8");
}

TEST_F(PageFilesTest, NothingElseIs) {
    for (const char* name : {"../secret.js",
                             "novnc/../secret.js",
                             "novnc/core/../../../secret.js",
                             "novnc/app/ui.js",
                             "novnc/",
                             "novnc/core",
                             "novnc/core/",
                             "inner/deep.js",
                             ".hidden.js",
                             "notes.txt",
                             "nothing.js",
                             "/lab.js",
                             "lab.js/",
                             "lab.js%00.html",
                             "lab.js\n",
                             "LAB.JS",
                             "..",
                             ".",
                             "./lab.js",
                             "novnc//core/rfb.js"})
        EXPECT_EQ(m_files.Find(name), std::nullopt) << name;
}

}  // namespace mpm::web::test
