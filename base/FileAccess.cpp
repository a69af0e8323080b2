#include "base/FileAccess.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

template <size_t N>
struct Sid {
    BYTE revision = SID_REVISION, count = N, authority[6] = {};
    DWORD parts[N] = {};
};
template <size_t N>
constexpr Sid<N> MakeSid(BYTE authority, const DWORD (&parts)[N]) {
    Sid<N> sid;
    sid.authority[5] = authority;
    std::copy(parts, parts + N, sid.parts);
    return sid;
}
template <size_t N>
std::string_view BytesOf(const Sid<N>& sid) {
    return {reinterpret_cast<const char*>(&sid), sizeof sid};
}

constexpr size_t SizeOfSid(BYTE count) {
    return offsetof(Sid<1>, parts) + count * sizeof(DWORD);
}

constexpr auto kSystem = MakeSid(5, {18});
constexpr auto kAdministrators = MakeSid(5, {32, 544});
constexpr auto kUsers = MakeSid(5, {32, 545});
// Stand for the owner in an access list.
constexpr auto kCreatorOwner = MakeSid(3, {0});
constexpr auto kOwnerRights = MakeSid(3, {4});
constexpr auto kTrustedInstaller =
    MakeSid(5, {80, 956008885, 3418522649, 1831038044, 1853292631, 2271478464});

constexpr DWORD kReadFile = FILE_GENERIC_READ, kExecuteFile = FILE_GENERIC_EXECUTE;
constexpr DWORD kRead = kReadFile | kExecuteFile | GENERIC_READ | GENERIC_EXECUTE;
// A user with one of these rights can get all others. An open handle keeps them when the list changes.
constexpr DWORD kTakeAll = DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;

template <size_t N>
struct Entry {
    ACE_HEADER header{ACCESS_ALLOWED_ACE_TYPE, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE, sizeof(Entry)};
    DWORD mask;
    Sid<N> sid;
};
struct Descriptor {
    SECURITY_DESCRIPTOR_RELATIVE head{SECURITY_DESCRIPTOR_REVISION,
                                      0,
                                      SE_SELF_RELATIVE | SE_DACL_PRESENT | SE_DACL_PROTECTED,
                                      offsetof(Descriptor, owner),
                                      offsetof(Descriptor, group),
                                      0,
                                      offsetof(Descriptor, list)};
    Sid<2> owner = kAdministrators, group = kAdministrators;
    ACL list{ACL_REVISION, 0, sizeof(Descriptor) - offsetof(Descriptor, list), 3, 0};
    Entry<1> system{.mask = FILE_ALL_ACCESS, .sid = kSystem};
    Entry<2> administrators{.mask = FILE_ALL_ACCESS, .sid = kAdministrators};
    Entry<2> users{.mask = kReadFile | kExecuteFile, .sid = kUsers};

    // Drops the last entry.
    static Descriptor WithoutUsers() {
        Descriptor descriptor;
        descriptor.list.AceCount = 2;
        descriptor.list.AclSize -= sizeof descriptor.users;
        return descriptor;
    }
};
static_assert(sizeof(Descriptor) == 20 + 2 * 16 + 8 + 20 + 24 + 24, "the parts lie side by side");

// The user that the process runs as: LocalSystem, or the administrator who started it by hand.
bool IsOwnUser(std::string_view sid) {
    UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) return false;
    alignas(TOKEN_USER) char user[256];
    DWORD size = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, user, sizeof user, &size)) return false;
    const auto* own = static_cast<const char*>(reinterpret_cast<TOKEN_USER*>(user)->User.Sid);
    return sid == std::string_view(own, SizeOfSid(static_cast<BYTE>(own[offsetof(Sid<1>, count)])));
}

bool IsTrusted(std::string_view sid) {
    for (const std::string_view known : {BytesOf(kAdministrators), BytesOf(kSystem), BytesOf(kCreatorOwner),
                                         BytesOf(kOwnerRights), BytesOf(kTrustedInstaller)})
        if (sid == known) return true;
    return IsOwnUser(sid);
}

struct Access {
    Control control = Control::Users;
    bool usersRead = true;
};

// Reads a descriptor within its bounds.
class DescriptorReader {
  public:
    explicit DescriptorReader(std::string_view bytes) : m_bytes(bytes) { Read(0, m_head); }

    // Everything that cannot be read counts as the users'.
    Access Judge() const {
        const std::string_view owner = SidAt(m_head.Owner);
        if (m_head.Owner == 0 || owner.empty() || !IsTrusted(owner)) return {};
        ACL list;
        // Without a list everyone may do everything.
        if (!(m_head.Control & SE_DACL_PRESENT) || m_head.Dacl == 0 || !Read(m_head.Dacl, list)) return {};
        Access access{Control::System, false};
        size_t at = m_head.Dacl + sizeof list;
        for (WORD i = 0; i < list.AceCount; ++i) {
            ACE_HEADER header;
            if (!Read(at, header) || header.AceSize < sizeof header) return {};
            const Access entry = JudgeEntry(at, header);
            access.control = std::max(access.control, entry.control);
            access.usersRead |= entry.usersRead;
            at += header.AceSize;
        }
        return access;
    }

  private:
    template <class Value>
    bool Read(size_t at, Value& value) const {
        if (at > m_bytes.size() || m_bytes.size() - at < sizeof value) return false;
        std::memcpy(&value, m_bytes.data() + at, sizeof value);
        return true;
    }
    std::string_view SidAt(size_t at) const {
        Sid<1> head;
        if (!Read(at, head)) return {};
        const size_t size = SizeOfSid(head.count);
        return m_bytes.size() - at < size ? std::string_view() : m_bytes.substr(at, size);
    }
    Access JudgeEntry(size_t at, const ACE_HEADER& header) const {
        ACCESS_ALLOWED_ACE entry;
        if (header.AceType == ACCESS_DENIED_ACE_TYPE) return {Control::System, false};
        if (header.AceType != ACCESS_ALLOWED_ACE_TYPE || !Read(at, entry)) return {};
        const std::string_view sid = SidAt(at + offsetof(ACCESS_ALLOWED_ACE, SidStart));
        if (!sid.empty() && IsTrusted(sid)) return {Control::System, false};
        const bool reads = entry.Mask & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL);
        if ((entry.Mask & ~kRead) == 0) return {Control::System, reads};
        return {entry.Mask & kTakeAll ? Control::Users : Control::UsersWrite, reads};
    }

    const std::string_view m_bytes;
    SECURITY_DESCRIPTOR_RELATIVE m_head{};
};

}  // namespace

UniqueFileHandle OpenInPlace(const std::string& path, DWORD access, DWORD disposition) {
    // Without FILE_SHARE_DELETE the file keeps its name while a handle with data access is open.
    return UniqueFileHandle(CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        disposition,
                                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

bool Examine(HANDLE file, FileFacts& facts) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!GetFileInformationByHandle(file, &information)) return false;
    facts.isLink = information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT;
    facts.isFolder = information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    facts.hasOtherNames = !facts.isFolder && information.nNumberOfLinks > 1;
    constexpr SECURITY_INFORMATION kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    std::vector<char> descriptor(1024);
    DWORD size = 0;
    while (!GetKernelObjectSecurity(file, kParts, descriptor.data(), static_cast<DWORD>(descriptor.size()),
                                    &size)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size <= descriptor.size()) return false;
        descriptor.resize(size);
    }
    const Access access = DescriptorReader({descriptor.data(), descriptor.size()}).Judge();
    facts.control = access.control;
    facts.usersRead = access.usersRead;
    return true;
}

PSECURITY_DESCRIPTOR ProtectedDescriptor() {
    static Descriptor descriptor;
    return &descriptor;
}

PSECURITY_DESCRIPTOR SecretDescriptor() {
    static Descriptor descriptor = Descriptor::WithoutUsers();
    return &descriptor;
}
