// Two certificates of authorities, and their SHA-1 thumbprints.
#pragma once

inline constexpr char kAlphaName[] = "Example Root Alpha";
inline constexpr char kAlphaThumbprint[] = "84E6C169467CAE6A380EF7E6E1405A8D4BB1087F";
inline constexpr char kAlphaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBtjCCAVugAwIBAgIUSV9v9Q3Lbpf2qnsGNDlhwLo2y+gwCgYIKoZIzj0EAwIw\n"
    "LzEQMA4GA1UECgwHRXhhbXBsZTEbMBkGA1UEAwwSRXhhbXBsZSBSb290IEFscGhh\n"
    "MCAXDTI2MTEyMjExMzcwNloYDzIxMjYxMDI5MTEzNzA2WjAvMRAwDgYDVQQKDAdF\n"
    "eGFtcGxlMRswGQYDVQQDDBJFeGFtcGxlIFJvb3QgQWxwaGEwWTATBgcqhkjOPQIB\n"
    "BggqhkjOPQMBBwNCAAQokQbkhubIEnfyRH3qzZ8vopssrm2y2obmvmw4aAcB9B9q\n"
    "AoFK+Yygu22Y2lXMOh2L/tVbwMerdZVWMo5IrR5Po1MwUTAdBgNVHQ4EFgQUwDHR\n"
    "TOzsHCiGI2G37UiAVdQFmH8wHwYDVR0jBBgwFoAUwDHRTOzsHCiGI2G37UiAVdQF\n"
    "mH8wDwYDVR0TAQH/BAUwAwEB/zAKBggqhkjOPQQDAgNJADBGAiEA/XOiFr5Djnhy\n"
    "gydjXR9QnMcszFT7XChEPswndHBq3a0CIQCrG7+14uSpX27IZFtmQDHkD+ibUpK8\n"
    "PpllAIEO2c0Fww==\n"
    "-----END CERTIFICATE-----\n";

inline constexpr char kBetaName[] = "Example Root Beta";
inline constexpr char kBetaThumbprint[] = "73309F718BB52F40A3A7627C64A66B809DE3F4EB";
inline constexpr char kBetaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBszCCAVmgAwIBAgIUD/E4STiFZno7ge1EAPb6LIfGi2QwCgYIKoZIzj0EAwIw\n"
    "LjEQMA4GA1UECgwHRXhhbXBsZTEaMBgGA1UEAwwRRXhhbXBsZSBSb290IEJldGEw\n"
    "IBcNMjYxMTIyMTEzNzA2WhgPMjEyNjEwMjkxMTM3MDZaMC4xEDAOBgNVBAoMB0V4\n"
    "YW1wbGUxGjAYBgNVBAMMEUV4YW1wbGUgUm9vdCBCZXRhMFkwEwYHKoZIzj0CAQYI\n"
    "KoZIzj0DAQcDQgAEsxwPmG0DFpHlg/cSOCNreH/soESeAn/NjzUL0/PZOZr5aFpl\n"
    "LWp99xTIsVZ3EGTFvSmRAXd5qkdKaVZR8e5LAqNTMFEwHQYDVR0OBBYEFCrXpWwZ\n"
    "nM464msGIRbFujbIkQjWMB8GA1UdIwQYMBaAFCrXpWwZnM464msGIRbFujbIkQjW\n"
    "MA8GA1UdEwEB/wQFMAMBAf8wCgYIKoZIzj0EAwIDSAAwRQIgM10tqptNKqlkto8T\n"
    "d2saVAUfLiV+RREhWvny6DtgSiQCIQCWQvx7Y4dGg9WocTTgRgHATk5mpl/UMtgY\n"
    "sfDIDtwwqg==\n"
    "-----END CERTIFICATE-----\n";
