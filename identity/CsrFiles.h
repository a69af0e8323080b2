// The folder of an enrolment, below the working folder. certreq.exe reads the request from it and leaves the
// certificate in it. It exists only during an enrolment.
//
// The functions do nothing to the folder, and read nothing from it, while the working folder is not secure.
#pragma once

#include <string>

#include "mailbox/IdentityRecords.h"

std::string GetCsrInputPath();          // input.csr
std::string GetCsrOutputPath();         // output.crt
std::string GetIntermediateCertPath();  // intermediate.pem
std::string GetRootCertPath();          // root.pem

// Removes the folder with everything in it.
void RemoveCsrFolder();

// Creates the folder and writes the request to input.csr.
void SaveCsrToFile(const CsrRequest& request);

// Fills the response with output.crt and root.pem, each cut to its field. A missing file has the size 0.
void ReadCsrResponse(CsrResponse& response);
