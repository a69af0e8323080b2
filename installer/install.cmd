@echo off
rem Installs the service, or replaces the installed one, as the MSI does. An administrator runs it from the unpacked folder.
setlocal
set ROOT=%ProgramW6432%\Tarvix\
set KEY=HKLM\SOFTWARE\WOW6432Node\Tarvix\Tarvix Manageability Service

sc query ZELService >nul 2>&1
if errorlevel 1 goto copy
"%~dp0zelsetup.exe" stop
if errorlevel 1 goto failed

:copy
if not exist "%ROOT%bin" mkdir "%ROOT%bin"
copy /y "%~dp0bin\*.exe" "%ROOT%bin" >nul
if errorlevel 1 goto failed
rem The service compares this text with its own folder: it ends with a separator.
reg add "%KEY%" /v InstallationPath /t REG_SZ /d "%ROOT%\" /f >nul
if errorlevel 1 goto failed

sc query ZELService >nul 2>&1
if not errorlevel 1 goto configure
sc create ZELService binPath= "%ROOT%bin\ZELService.exe" start= auto DisplayName= "Tarvix Manageability Service" >nul
if errorlevel 1 goto failed

:configure
sc description ZELService "Connects the manageability firmware of this PC with the network and with Windows." >nul
"%~dp0zelsetup.exe" configure "%ROOT%bin\ZELService.exe"
if errorlevel 1 goto failed
"%~dp0zelsetup.exe" open-firewall "%ROOT%bin\ZELService.exe"
if errorlevel 1 echo The firewall has no rules for the service.
net start ZELService >nul
if errorlevel 1 goto failed
echo The service is installed and runs.
exit /b 0

:failed
echo The service could not be installed. This needs an administrator, and no program in "%ROOT%bin" may run.
exit /b 1
