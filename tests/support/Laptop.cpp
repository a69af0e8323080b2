#include "tests/support/Laptop.h"

winhost::PcDescription DescribeLaptop(const std::string& root) {
    winhost::PcDescription pc;
    pc.root = root;
    pc.environment["PROGRAMDATA"] = "C:\\ProgramData";
    pc.modulePath = "C:\\Program Files\\Tarvix\\Service\\bin\\ZELService.exe";
    pc.registry["HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service"]
               ["InstallationPath"] = "C:\\Program Files\\Tarvix\\Service\\";
    winhost::Adapter wired;
    wired.name = "{3C1A5B0E-6E0C-4B0F-9A53-0D5D7A3C1F11}";
    wired.description = "Intel(R) Ethernet Connection I219-LM";
    wired.mac = "00:11:22:33:44:55";
    wired.address = "192.168.1.10";
    wired.mask = "255.255.255.0";
    wired.gateway = "192.168.1.1";
    wired.dhcpServer = "192.168.1.1";
    pc.adapters = {wired};
    pc.dnsServers = {"192.168.1.53"};
    return pc;
}
