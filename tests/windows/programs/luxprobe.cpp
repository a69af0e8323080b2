// luxprobe [COMMAND...]: uses the media runtime beside it as the service does. The commands are executed in
// order:
//   watch N        delivers N pictures through the whole chain and prints a line for each
//   save FILE      writes the last captured picture to FILE, as PPM
//   kill           ends the capture program
//   hang           suspends the capture program
//   programs       prints how many capture programs run
//   restart        ends the session and begins another
//   end            ends the session
// The exit code is 0, or 1 with the reason on the error output.
#include <windows.h>
#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lux/Names.h"
#include "lux/Ref.h"

using namespace lux;

namespace {

[[noreturn]] void Fail(const std::string& reason) {
    std::fprintf(stderr, "luxprobe: %s\n", reason.c_str());
    std::exit(1);
}

void Check(const char* step, LUX_RESULT result) {
    if (result != LUX_OK) {
        Fail(std::string(step) + " returned " + std::to_string(result));
    }
}

double Milliseconds() {
    LARGE_INTEGER count{};
    LARGE_INTEGER frequency{};
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) * 1000 / static_cast<double>(frequency.QuadPart);
}

LUXFactory* LoadFactory() {
    const HMODULE library = LoadLibraryW(L"luxrt64.dll");
    if (!library) {
        Fail("luxrt64.dll cannot be loaded, error " + std::to_string(GetLastError()));
    }
    const auto init =
        reinterpret_cast<LUXInit_Fn>(reinterpret_cast<void*>(GetProcAddress(library, "LUXInit")));
    const auto version = reinterpret_cast<LUXQueryVersion_Fn>(
        reinterpret_cast<void*>(GetProcAddress(library, "LUXQueryVersion")));
    if (!init || !version) {
        Fail("luxrt64.dll lacks an export");
    }
    LUXFactory* factory = nullptr;
    Check("LUXInit", init(LUX_HEADER_VERSION, &factory));
    LUXVersion number = 0;
    Check("LUXQueryVersion", version(&number));
    std::printf("version %016llx\n", static_cast<unsigned long long>(number));
    return factory;
}

// The capture programs that this process has started.
std::vector<PROCESSENTRY32> CapturePrograms() {
    std::vector<PROCESSENTRY32> found;
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
        if (std::string_view(entry.szExeFile) == "luxcapture.exe" &&
            entry.th32ParentProcessID == GetCurrentProcessId()) {
            found.push_back(entry);
        }
    }
    CloseHandle(snapshot);
    return found;
}

class Session {
  public:
    explicit Session(LUXFactory* factory) : m_factory(factory) { Begin(); }

    void Begin() {
        Check("CreateContext", m_factory->CreateContext(m_context.Out()));
        m_capture = Create(kCaptureId);
        m_encoder.Reset();
        m_converter.Reset();
        m_size = {};
        Check("capture Init", m_capture->Init(LUX_SURFACE_UNKNOWN, 0, 0));
    }

    void End() {
        for (const auto& component : {m_capture, m_converter, m_encoder}) {
            if (component) {
                component->Flush();
                Check("Terminate", component->Terminate());
            }
        }
        m_picture.Reset();
        Check("context Terminate", m_context->Terminate());
    }

    void Deliver() {
        const double asked = Milliseconds();
        while (Check("capture QueryOutput", m_capture->QueryOutput(m_picture.Out())), !m_picture) {
            Sleep(1);
            if (Milliseconds() - asked > 30'000) {
                Fail("the capture delivers nothing");
            }
        }
        const double captured = Milliseconds();
        const auto surface = m_picture.As<LUXSurface>();
        const LUXSize size{surface->GetPlane(0)->GetWidth(), surface->GetPlane(0)->GetHeight()};
        if (size != m_size) {
            m_size = size;
            Prepare();
        }
        const double prepared = Milliseconds();
        const auto converted = Pass(*m_converter.Get(), m_picture);
        const double done = Milliseconds();
        const auto packet = Pass(*m_encoder.Get(), converted).As<LUXBuffer>();
        std::printf("picture %dx%d packet %u capture %.2f convert %.2f encode %.2f\n", size.width,
                    size.height, static_cast<unsigned>(packet->GetSize()), captured - asked, done - prepared,
                    Milliseconds() - done);
        std::fflush(stdout);
    }

    void Save(const char* file) {
        std::ofstream stream(file, std::ios::binary);
        stream << "P6\n" << m_size.width << " " << m_size.height << "\n255\n";
        const auto surface = m_picture.As<LUXSurface>();
        const auto* row = static_cast<const uint8_t*>(surface->GetPlane(0)->GetNative());
        for (int32_t y = 0; y < m_size.height; ++y, row += surface->GetPlane(0)->GetPitch()) {
            for (int32_t x = 0; x < m_size.width; ++x) {
                stream.put(static_cast<char>(row[x * 4 + 2]));
                stream.put(static_cast<char>(row[x * 4 + 1]));
                stream.put(static_cast<char>(row[x * 4]));
            }
        }
    }

  private:
    Ref<LUXComponent> Create(const wchar_t* id) {
        Ref<LUXComponent> component;
        Check("CreateComponent", m_factory->CreateComponent(m_context.Get(), id, component.Out()));
        return component;
    }
    void Prepare() {
        m_converter = Create(kConverterId);
        Check("converter Init", m_converter->Init(LUX_SURFACE_BGRA, m_size.width, m_size.height));
        m_encoder = Create(kAv1EncoderId);
        Check("encoder Init", m_encoder->Init(LUX_SURFACE_NV12, m_size.width, m_size.height));
    }
    static Ref<LUXData> Pass(LUXComponent& component, const Ref<LUXData>& input) {
        Check("SubmitInput", component.SubmitInput(input.Get()));
        Ref<LUXData> output;
        Check("QueryOutput", component.QueryOutput(output.Out()));
        if (!output) {
            Fail("a stage has no output");
        }
        return output;
    }

    LUXFactory* m_factory;
    Ref<LUXContext> m_context;
    Ref<LUXComponent> m_capture;
    Ref<LUXComponent> m_converter;
    Ref<LUXComponent> m_encoder;
    Ref<LUXData> m_picture;
    LUXSize m_size{};
};

void EndPrograms() {
    for (const PROCESSENTRY32& program : CapturePrograms()) {
        HANDLE const process = OpenProcess(PROCESS_TERMINATE, FALSE, program.th32ProcessID);
        TerminateProcess(process, 9);
        CloseHandle(process);
    }
}

void SuspendPrograms() {
    HANDLE const snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    for (const PROCESSENTRY32& program : CapturePrograms()) {
        THREADENTRY32 entry{};
        entry.dwSize = sizeof entry;
        for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
            if (entry.th32OwnerProcessID == program.th32ProcessID) {
                HANDLE const thread = OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID);
                SuspendThread(thread);
                CloseHandle(thread);
            }
        }
    }
    CloseHandle(snapshot);
}

}  // namespace

int main(int count, char** arguments) {
    Session session(LoadFactory());
    int index = 1;
    const auto next = [&]() -> const char* { return ++index < count ? arguments[index] : ""; };
    const std::map<std::string_view, std::function<void()>> commands{
        {"watch",
         [&] {
             for (int pictures = std::atoi(next()); pictures > 0; --pictures) {
                 session.Deliver();
             }
         }},
        {"save", [&] { session.Save(next()); }},
        {"kill", EndPrograms},
        {"hang", SuspendPrograms},
        {"programs", [] { std::printf("programs %u\n", static_cast<unsigned>(CapturePrograms().size())); }},
        {"restart",
         [&] {
             session.End();
             session.Begin();
         }},
        {"end", [&] { session.End(); }},
    };
    for (; index < count; ++index) {
        const auto command = commands.find(arguments[index]);
        if (command == commands.end()) {
            Fail(std::string("unknown command ") + arguments[index]);
        }
        command->second();
    }
    return 0;
}
