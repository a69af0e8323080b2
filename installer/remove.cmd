@echo off
rem Removes the service that install.cmd has installed. Only its logs stay.
setlocal
set ROOT=%ProgramW6432%\Tarvix\

"%~dp0zelsetup.exe" stop
if errorlevel 1 goto failed
sc delete ZELService >nul
if errorlevel 1 goto failed
"%~dp0zelsetup.exe" close-firewall
"%~dp0zelsetup.exe" remove-data
if errorlevel 1 echo Some data of the service could not be deleted.
reg delete "HKLM\SOFTWARE\WOW6432Node\Tarvix\Tarvix Manageability Service" /f >nul
for %%f in (ZELService.exe ZELKVMApp.exe userconsent.exe) do del /q "%ROOT%bin\%%f"
rmdir "%ROOT%bin"
rmdir "%ROOT%"
echo The service is removed.
exit /b 0

:failed
echo The service could not be removed. This needs an administrator, and no program in "%ROOT%bin" may run.
exit /b 1
