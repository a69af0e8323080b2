// Certificates of authorities: two with their SHA-1 thumbprints, and a third with an authority below it,
// which has certified a machine.
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

inline constexpr char kDeltaName[] = "Example Root Delta";
inline constexpr char kDeltaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBwjCCAWigAwIBAgIUFNOUWDizk3sv3uV4HfWcSL7iKf0wCgYIKoZIzj0EAwIw\n"
    "LzEQMA4GA1UECgwHRXhhbXBsZTEbMBkGA1UEAwwSRXhhbXBsZSBSb290IERlbHRh\n"
    "MCAXDTI2MTEyMjE0NDgzM1oYDzIxMjYxMDI5MTQ0ODMzWjAvMRAwDgYDVQQKDAdF\n"
    "eGFtcGxlMRswGQYDVQQDDBJFeGFtcGxlIFJvb3QgRGVsdGEwWTATBgcqhkjOPQIB\n"
    "BggqhkjOPQMBBwNCAAShxa9YZP/hAmeTUe7r1+d7h6CGJRlw3PztOQctWPV2ttnO\n"
    "b5r1Q2B87CsrucBh9NweGV8KJZ6v46xi58SUP1uNo2AwXjAdBgNVHQ4EFgQUdm8l\n"
    "EdfpmBSmZJ3RfYIFCHOXRdUwHwYDVR0jBBgwFoAUdm8lEdfpmBSmZJ3RfYIFCHOX\n"
    "RdUwDwYDVR0TAQH/BAUwAwEB/zALBgNVHQ8EBAMCAQYwCgYIKoZIzj0EAwIDSAAw\n"
    "RQIhAPSv7ZL+T9B9EJA71f83+7F08t0cAeVXHlpXKvfPWqV/AiABv5CZtnwiMEZu\n"
    "GClrCs77vVeodqJrzSW+BGkWd2AMVw==\n"
    "-----END CERTIFICATE-----\n";

// The subject is "test, example, Example Issuing Gamma".
inline constexpr char kGammaName[] = "Example Issuing Gamma";
inline constexpr char kGammaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIB4TCCAYigAwIBAgIUTpdu4utm1EIkACSsEkjmGb3XHQ0wCgYIKoZIzj0EAwIw\n"
    "LzEQMA4GA1UECgwHRXhhbXBsZTEbMBkGA1UEAwwSRXhhbXBsZSBSb290IERlbHRh\n"
    "MCAXDTI2MTEyMjE0NDgzM1oYDzIxMjYxMDI5MTQ0ODMzWjBPMRQwEgYKCZImiZPy\n"
    "LGQBGRYEdGVzdDEXMBUGCgmSJomT8ixkARkWB2V4YW1wbGUxHjAcBgNVBAMMFUV4\n"
    "YW1wbGUgSXNzdWluZyBHYW1tYTBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IABIxk\n"
    "o+Tqh+mzFI8eYWjroukUd6O+Y+2bbLuYeh3PZwkogyseCqcbkDfMHljgRgqv1iWx\n"
    "IjUllo2cH5gY9BKldA+jYDBeMA8GA1UdEwEB/wQFMAMBAf8wCwYDVR0PBAQDAgEG\n"
    "MB0GA1UdDgQWBBRsoWinzes6p7zibrAzKerFNjQ8YDAfBgNVHSMEGDAWgBR2byUR\n"
    "1+mYFKZkndF9ggUIc5dF1TAKBggqhkjOPQQDAgNHADBEAiBPTiYvHC5Q0+1bbe3A\n"
    "jOA9Luelpi7uDIicHMmFYZvP7gIgdbUhOqWqe1bql9IMzSPpXsuurupOiQ+oe5mZ\n"
    "WwavBSY=\n"
    "-----END CERTIFICATE-----\n";

// The organisation's name is quoted in the subject's text: "Example, ""Inc""", laptop.example.test
inline constexpr char kMachineName[] = "laptop.example.test";
inline constexpr char kMachinePem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIB1zCCAX2gAwIBAgIUCsR8KthUNi2J7GvcFrneWsb7DfowCgYIKoZIzj0EAwIw\n"
    "TzEUMBIGCgmSJomT8ixkARkWBHRlc3QxFzAVBgoJkiaJk/IsZAEZFgdleGFtcGxl\n"
    "MR4wHAYDVQQDDBVFeGFtcGxlIElzc3VpbmcgR2FtbWEwIBcNMjYxMTIyMTQ0ODMz\n"
    "WhgPMjEyNjEwMjkxNDQ4MzNaMDcxFzAVBgNVBAoMDkV4YW1wbGUsICJJbmMiMRww\n"
    "GgYDVQQDDBNsYXB0b3AuZXhhbXBsZS50ZXN0MFkwEwYHKoZIzj0CAQYIKoZIzj0D\n"
    "AQcDQgAEoeK2tqmilLnP4BzrkCno8OgMc+zu20/1SotxbA9Ur6b1fpD90zdSbdVO\n"
    "S63FBtFY4vK8Cg+jTZkzS2IYIuvhHaNNMEswCQYDVR0TBAIwADAdBgNVHQ4EFgQU\n"
    "rkPTQLHpJHThLrGq39plyVXCXdMwHwYDVR0jBBgwFoAUbKFop83rOqe84m6wMynq\n"
    "xTY0PGAwCgYIKoZIzj0EAwIDSAAwRQIga+zfic0tpRP4GDQrshO1sOa9uuIBkHAz\n"
    "t6tklCVlTb0CIQCO20+5niT4ze8mYoWvC3c3iWTWJd7Lr2SotgeBTmMb7w==\n"
    "-----END CERTIFICATE-----\n";
