#include "winhost/files/FileSecurity.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <initializer_list>

#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

constexpr char kAttribute[] = "user.winhost.security";
constexpr size_t kMostBytes = 4096;
constexpr size_t kSidHead = 8;

std::string Sid(BYTE authority, std::initializer_list<DWORD> parts) {
    std::string sid{
        SID_REVISION, static_cast<char>(parts.size()), 0, 0, 0, 0, 0, static_cast<char>(authority)};
    for (const DWORD part : parts)
        sid.append(reinterpret_cast<const char*>(&part), sizeof part);
    return sid;
}

const std::string kEveryone = Sid(1, {0}), kCreatorOwner = Sid(3, {0}), kSystem = Sid(5, {18}),
                  kAuthenticated = Sid(5, {11}), kAdministrators = Sid(5, {32, 544}),
                  kUsers = Sid(5, {32, 545});

constexpr BYTE kToAll = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;

FileSecurity OfTheDrives() {
    constexpr BYTE kAllow = ACCESS_ALLOWED_ACE_TYPE;
    constexpr DWORD kReadFile = FILE_GENERIC_READ, kRead = kReadFile | FILE_GENERIC_EXECUTE;
    constexpr DWORD kCreate = FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | FILE_WRITE_EA | FILE_WRITE_ATTRIBUTES;
    return {kAdministrators,
            true,
            {{kAllow, kToAll, FILE_ALL_ACCESS, kSystem},
             {kAllow, kToAll, FILE_ALL_ACCESS, kAdministrators},
             {kAllow, kToAll | INHERIT_ONLY_ACE, FILE_ALL_ACCESS, kCreatorOwner},
             {kAllow, kToAll, kRead, kUsers},
             {kAllow, CONTAINER_INHERIT_ACE, kCreate, kUsers}}};
}

std::vector<AccessEntry> Inherited(const FileSecurity& parent, bool isFolder, const std::string& owner) {
    std::vector<AccessEntry> entries;
    for (const AccessEntry& from : parent.entries) {
        const bool reaches = from.flags & (isFolder ? CONTAINER_INHERIT_ACE : OBJECT_INHERIT_ACE);
        const bool passesOn = isFolder && from.flags & kToAll && !(from.flags & NO_PROPAGATE_INHERIT_ACE);
        AccessEntry entry = from;
        entry.flags = INHERITED_ACE;
        if (reaches && from.sid == kCreatorOwner) {
            entry.sid = owner;
            entries.push_back(entry);
        } else if (reaches) {
            if (passesOn) entry.flags |= from.flags & kToAll;
            entries.push_back(entry);
            continue;
        }
        if (!passesOn) continue;
        entry.sid = from.sid;
        entry.flags |= (from.flags & kToAll) | INHERIT_ONLY_ACE;
        entries.push_back(entry);
    }
    return entries;
}

// By this name the host finds the file wherever it lies.
std::string NameOf(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string ParentOf(const std::string& path) {
    return std::filesystem::path(path).parent_path();
}

// Below the folder that contains the drives.
bool IsOnADrive(const std::string& path) {
    const std::string root = Pc::Instance().HostPath("C:\\");
    const std::string drives = ParentOf(root.substr(0, root.size() - 1));
    return path.size() > drives.size() && path.starts_with(drives) && path[drives.size()] == '/';
}

FileSecurity Initial(const std::string& path, const std::string& owner) {
    struct stat status;
    const bool isFolder = lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    const std::string parent = ParentOf(path);
    const FileSecurity above = IsOnADrive(parent) ? SecurityOf(parent) : OfTheDrives();
    return {owner, false, Inherited(above, isFolder, owner)};
}

std::vector<std::string> SidsOf(const std::string& user) {
    std::vector<std::string> sids{kEveryone, kAuthenticated, SidOfUser(user)};
    sids.push_back(user == "SYSTEM" ? kAdministrators : kUsers);
    return sids;
}

bool HasAny(const std::vector<std::string>& sids, const std::string& sid) {
    for (const std::string& candidate : sids)
        if (candidate == sid) return true;
    return false;
}

// From a SID's first byte on.
std::string SidAt(const char* bytes) {
    const size_t parts = static_cast<BYTE>(bytes[1]);
    return {bytes, kSidHead + parts * sizeof(DWORD)};
}

bool ParseEntries(const ACL* dacl, std::vector<AccessEntry>& entries) {
    if (!dacl) return false;
    const char* at = reinterpret_cast<const char*>(dacl + 1);
    const char* const end = reinterpret_cast<const char*>(dacl) + dacl->AclSize;
    for (WORD i = 0; i < dacl->AceCount; ++i) {
        ACCESS_ALLOWED_ACE ace;
        if (end - at < static_cast<ptrdiff_t>(sizeof ace)) return false;
        std::memcpy(&ace, at, sizeof ace);
        if (ace.Header.AceSize < sizeof ace || ace.Header.AceSize > end - at) return false;
        entries.push_back({ace.Header.AceType, ace.Header.AceFlags, ace.Mask,
                           SidAt(at + offsetof(ACCESS_ALLOWED_ACE, SidStart))});
        at += ace.Header.AceSize;
    }
    return true;
}

}  // namespace

std::string FileSecurity::Bytes() const {
    std::string list(sizeof(ACL), '\0');
    for (const AccessEntry& entry : entries) {
        const size_t size = offsetof(ACCESS_ALLOWED_ACE, SidStart) + entry.sid.size();
        const ACE_HEADER header{entry.type, entry.flags, static_cast<WORD>(size)};
        list.append(reinterpret_cast<const char*>(&header), sizeof header);
        list.append(reinterpret_cast<const char*>(&entry.mask), sizeof entry.mask);
        list += entry.sid;
    }
    const ACL acl{ACL_REVISION, 0, static_cast<WORD>(list.size()), static_cast<WORD>(entries.size()), 0};
    std::memcpy(list.data(), &acl, sizeof acl);
    SECURITY_DESCRIPTOR_RELATIVE head{};
    head.Revision = SECURITY_DESCRIPTOR_REVISION;
    head.Control = SE_SELF_RELATIVE | SE_DACL_PRESENT;
    if (isProtected) head.Control |= SE_DACL_PROTECTED;
    head.Owner = sizeof head;
    head.Dacl = static_cast<DWORD>(sizeof head + owner.size());
    return std::string(reinterpret_cast<const char*>(&head), sizeof head) + owner + list;
}

std::string SidOfUser(const std::string& user) {
    if (user == "SYSTEM") return kSystem;
    return Sid(5, {21, 1, 2, 3, 1000 + static_cast<DWORD>(std::hash<std::string>{}(user) % 1'000'000)});
}

std::string DefaultOwner(const std::string& user) {
    return user == "SYSTEM" ? kAdministrators : SidOfUser(user);
}

bool MayOwn(const std::string& user, const std::string& sid) {
    return sid == SidOfUser(user) || sid == DefaultOwner(user);
}

bool ParseSecurity(const void* descriptor, FileSecurity& security) {
    const char* const start = static_cast<const char*>(descriptor);
    SECURITY_DESCRIPTOR_RELATIVE relative;
    std::memcpy(&relative, start, sizeof relative);
    if (relative.Revision != SECURITY_DESCRIPTOR_REVISION) return false;
    const char* owner = nullptr;
    const char* dacl = nullptr;
    if (relative.Control & SE_SELF_RELATIVE) {
        if (relative.Owner) owner = start + relative.Owner;
        if (relative.Dacl) dacl = start + relative.Dacl;
    } else {
        const auto* absolute = static_cast<const SECURITY_DESCRIPTOR*>(descriptor);
        owner = static_cast<const char*>(absolute->Owner);
        dacl = reinterpret_cast<const char*>(absolute->Dacl);
    }
    if (owner) security.owner = SidAt(owner);
    if (!(relative.Control & SE_DACL_PRESENT)) return true;
    security.isProtected = relative.Control & SE_DACL_PROTECTED;
    security.entries.clear();
    return ParseEntries(reinterpret_cast<const ACL*>(dacl), security.entries);
}

FileSecurity SecurityOf(const std::string& path, int descriptor) {
    char bytes[kMostBytes];
    FileSecurity security;
    const ssize_t size = descriptor < 0
                             ? lgetxattr(path.c_str(), kAttribute, bytes, sizeof bytes)
                             : getxattr(NameOf(descriptor).c_str(), kAttribute, bytes, sizeof bytes);
    if (size > 0 && ParseSecurity(bytes, security)) return security;
    return Initial(path, kAdministrators);
}

DWORD StoreSecurity(const std::string& path, const FileSecurity& security, int descriptor) {
    const std::string bytes = security.Bytes();
    if (bytes.size() > kMostBytes) return ERROR_INVALID_ACL;
    const int result = descriptor < 0
                           ? lsetxattr(path.c_str(), kAttribute, bytes.data(), bytes.size(), 0)
                           : setxattr(NameOf(descriptor).c_str(), kAttribute, bytes.data(), bytes.size(), 0);
    return result == 0 ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

DWORD StoreInitialSecurity(const std::string& path, const void* descriptor) {
    const std::string user = Pc::Instance().Description().userName;
    FileSecurity security = Initial(path, DefaultOwner(user));
    if (!descriptor) return StoreSecurity(path, security);
    if (!ParseSecurity(descriptor, security)) return ERROR_INVALID_SECURITY_DESCR;
    if (!MayOwn(user, security.owner)) return ERROR_INVALID_OWNER;
    return StoreSecurity(path, security);
}

DWORD ExpandGeneric(DWORD access) {
    if (access & GENERIC_READ) access |= FILE_GENERIC_READ;
    if (access & GENERIC_WRITE) access |= FILE_GENERIC_WRITE;
    if (access & GENERIC_EXECUTE) access |= FILE_GENERIC_EXECUTE;
    if (access & GENERIC_ALL) access |= FILE_ALL_ACCESS;
    return access & FILE_ALL_ACCESS;
}

bool IsGranted(const FileSecurity& security, DWORD access) {
    const std::vector<std::string> sids = SidsOf(Pc::Instance().Description().userName);
    DWORD missing = ExpandGeneric(access);
    if (HasAny(sids, security.owner)) missing &= ~DWORD{READ_CONTROL | WRITE_DAC};
    for (const AccessEntry& entry : security.entries) {
        if (entry.flags & INHERIT_ONLY_ACE || !HasAny(sids, entry.sid)) continue;
        if (entry.type == ACCESS_DENIED_ACE_TYPE && missing & ExpandGeneric(entry.mask)) return false;
        if (entry.type == ACCESS_ALLOWED_ACE_TYPE) missing &= ~ExpandGeneric(entry.mask);
    }
    return missing == 0;
}

DWORD MayCreate(const std::string& path, bool isFolder) {
    const std::string parent = ParentOf(path);
    if (!IsOnADrive(parent)) return ERROR_SUCCESS;
    const DWORD needed = isFolder ? FILE_ADD_SUBDIRECTORY : FILE_ADD_FILE;
    return IsGranted(SecurityOf(parent), needed) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

DWORD MayRemove(const std::string& path) {
    if (!IsOnADrive(path) || IsGranted(SecurityOf(path), DELETE)) return ERROR_SUCCESS;
    const std::string parent = ParentOf(path);
    const FileSecurity above = IsOnADrive(parent) ? SecurityOf(parent) : OfTheDrives();
    return IsGranted(above, FILE_DELETE_CHILD) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace winhost
