// Libraries that are loaded by name, and their functions.
#include <iterator>

#include "winhost/kernel/Libraries.h"
#include "winhost/tests/PcFixture.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kProgramFolder = "C:\\Program Files\\Tarvix\\bin";
constexpr const wchar_t* kName = L"winhost_testlibrary.dll";

class LibraryTest : public PcFixture {
  protected:
    ~LibraryTest() override {
        EXPECT_EQ(0u, winhost::LoadedSharedObjects()) << "each test frees what it loads";
    }

    // Where the build puts the tests' library.
    static fs::path Built() {
        return fs::read_symlink("/proc/self/exe").parent_path() / "libwinhost_testlibrary.so";
    }
    // The PC's program lies in a folder of its own, without any library.
    void InstallProgram(const std::function<void(winhost::PcDescription&)>& describe = [](auto&) {}) {
        StartPc([&](auto& pc) {
            pc.modulePath = std::string(kProgramFolder) + "\\x.exe";
            describe(pc);
        });
        fs::create_directories(Folder(kProgramFolder));
    }
    static fs::path Folder(const std::string& windowsPath) {
        return winhost::Pc::Instance().HostPath(windowsPath);
    }
    // A link to the library there; the folder is made.
    static void Put(const fs::path& file) {
        fs::create_directories(file.parent_path());
        fs::create_symlink(Built(), file);
    }
    // A file with the library's bytes, in which one text is another of the same length.
    static void PutWith(const fs::path& file, const std::string& text, const std::string& replacement) {
        std::ifstream source(Built(), std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(source), {}};
        size_t at = bytes.find(text);
        ASSERT_NE(std::string::npos, at) << text;
        for (; at != std::string::npos; at = bytes.find(text, at))
            bytes.replace(at, text.size(), replacement);
        std::ofstream(file, std::ios::binary) << bytes;
    }
    static bool Loads(const wchar_t* name) {
        const HMODULE library = LoadLibraryW(name);
        return library && FreeLibrary(library);
    }
    static DWORD ErrorOfLoading(const wchar_t* name) {
        SetLastError(0);
        EXPECT_EQ(nullptr, LoadLibraryW(name));
        return GetLastError();
    }
};

template <class Function>
Function* Find(HMODULE library, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

TEST_F(LibraryTest, ALibraryBesideTheProgramIsLoaded) {
    const HMODULE library = LoadLibraryW(kName);
    ASSERT_NE(nullptr, library) << GetLastError();
    auto* answer = Find<int()>(library, "Answer");
    ASSERT_NE(nullptr, answer);
    EXPECT_EQ(42, answer());
    EXPECT_TRUE(FreeLibrary(library));
}

TEST_F(LibraryTest, TheLastFreeUnloads) {
    const HMODULE library = LoadLibraryW(kName);
    ASSERT_NE(nullptr, library);
    bool isUnloaded = false;
    Find<void(bool*)>(library, "WatchUnloading")(&isUnloaded);
    EXPECT_EQ(library, LoadLibraryW(L"WINHOST_TestLibrary.DLL"))
        << "a loaded one goes by its name in any case";
    EXPECT_EQ(library, GetModuleHandleA("winhost_testlibrary.dll"));
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_FALSE(isUnloaded);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_TRUE(isUnloaded);
    EXPECT_EQ(nullptr, GetModuleHandleA("winhost_testlibrary.dll"));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOf(FreeLibrary(library)));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOf(GetProcAddress(library, "Answer")));
}

TEST_F(LibraryTest, FunctionsAreTheLibrarysOwn) {
    const HMODULE library = LoadLibraryW(kName);
    ASSERT_NE(nullptr, library);
    for (const char* name : {"answer", "malloc", "", reinterpret_cast<const char*>(1)}) {
        SetLastError(0);
        EXPECT_EQ(ERROR_PROC_NOT_FOUND, ErrorOf(GetProcAddress(library, name)));
    }
    FreeLibrary(library);
}

TEST_F(LibraryTest, NoLibraryIsNoModule) {
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOfLoading(L"nosuch.dll"));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOfLoading(L""));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfLoading(nullptr));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(FreeLibrary(nullptr)));
}

TEST_F(LibraryTest, FoldersAreSearchedInOrder) {
    InstallProgram([&](auto& pc) {
        pc.libraryFolders = {m_root / "first", m_root / "second"};
        pc.environment["Path"] = "C:\\tools;C:\\more";
    });
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOfLoading(kName)) << "the PC's program lies elsewhere";
    // From the last place to the first: each one that comes before hides a file that is no library.
    fs::path behind;
    for (const fs::path& folder :
         {Folder("C:\\more"), Folder("C:\\tools"), fs::path("."), Folder("C:\\Windows"),
          Folder("C:\\Windows\\System32"), m_root / "second", m_root / "first", Folder(kProgramFolder)}) {
        const fs::path file = folder / "winhost_testlibrary.dll";
        Put(file);
        EXPECT_TRUE(Loads(kName)) << folder;
        fs::remove(file);
        const DWORD error = behind.empty() ? ERROR_MOD_NOT_FOUND : ERROR_BAD_EXE_FORMAT;
        EXPECT_EQ(error, ErrorOfLoading(kName)) << "what lies in " << behind;
        std::ofstream(file) << "no library";
        behind = folder;
    }
}

TEST_F(LibraryTest, TheFileMayHaveANameOfLinux) {
    for (const char* file :
         {"winhost_testlibrary.dll", "winhost_testlibrary.so", "libwinhost_testlibrary.so"}) {
        InstallProgram();
        Put(Folder(kProgramFolder) / file);
        EXPECT_TRUE(Loads(kName)) << file;
        fs::remove(Folder(kProgramFolder) / file);
        EXPECT_FALSE(Loads(kName)) << file;
    }
}

TEST_F(LibraryTest, TheErrorTellsWhyALibraryIsNotLoaded) {
    InstallProgram();
    const fs::path folder = Folder(kProgramFolder);
    std::ofstream(folder / "text.dll") << "no library";
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, ErrorOfLoading(L"text.dll"));
    fs::create_symlink("/proc/self/exe", folder / "program.dll");
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, ErrorOfLoading(L"program.dll"));
    PutWith(folder / "lacks.dll", "libc.so.6", "libq.so.6");
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOfLoading(L"lacks.dll"));
    PutWith(folder / "calls.dll", "__cxa_atexit", "__cxa_nosuch");
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, ErrorOfLoading(L"calls.dll"));
}

TEST_F(LibraryTest, TheSystemsLibrariesStay) {
    const HMODULE ntdll = LoadLibraryW(L"NtDll");
    EXPECT_EQ(GetModuleHandleA("ntdll.dll"), ntdll);
    EXPECT_NE(nullptr, GetProcAddress(ntdll, "RtlGetVersion"));
    EXPECT_TRUE(FreeLibrary(ntdll));
    EXPECT_TRUE(FreeLibrary(ntdll));
    EXPECT_NE(nullptr, GetProcAddress(ntdll, "RtlGetVersion"));
    EXPECT_TRUE(FreeLibrary(GetModuleHandleA(nullptr)));
}

}  // namespace
