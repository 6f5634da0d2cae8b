; The Windows installer of Mervasto, made by scripts/windows-package:
;   makensis -DVERSION=1.0.0 -DSTAGE=<folder of the program> -DUNINSTALL_LIST=<file.nsh>
;            -DOUTFILE=<setup.exe> mervasto.nsi
; It installs under Program Files, adds Start-menu entries for the program
; and its user guide, and an uninstaller that leaves the data folder
; (C:\ProgramData\Mervasto) and what the user measured in it.
Unicode true
; A 64-bit installer for the 64-bit program.
Target amd64-unicode
!include "MUI2.nsh"

Name "Mervasto ${VERSION}"
OutFile "${OUTFILE}"
InstallDir "$PROGRAMFILES64\Mervasto"
InstallDirRegKey HKLM "Software\Mervasto" "InstallDir"
RequestExecutionLevel admin
SetCompressor /SOLID lzma

!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Mervasto"

!insertmacro MUI_PAGE_LICENSE "${STAGE}\LICENSE.txt"
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

Section "Mervasto"
  SetRegView 64
  SetShellVarContext all
  SetOutPath "$INSTDIR"
  File /r "${STAGE}\*.*"
  WriteUninstaller "$INSTDIR\Uninstall.exe"
  CreateDirectory "$SMPROGRAMS\Mervasto"
  CreateShortcut "$SMPROGRAMS\Mervasto\Mervasto.lnk" "$INSTDIR\mervasto.exe"
  CreateShortcut "$SMPROGRAMS\Mervasto\Mervasto User Guide.lnk" "$INSTDIR\docs\user-guide.html"
  CreateShortcut "$SMPROGRAMS\Mervasto\Uninstall Mervasto.lnk" "$INSTDIR\Uninstall.exe"
  WriteRegStr HKLM "Software\Mervasto" "InstallDir" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "Mervasto"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Mervasto developers"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\mervasto.exe"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\Uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\Uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Section "Uninstall"
  SetRegView 64
  SetShellVarContext all
  ; Only what the installer put there (the list is made from the staged
  ; files); the data folder stays, and so does anything else in $INSTDIR.
  !include "${UNINSTALL_LIST}"
  Delete "$INSTDIR\Uninstall.exe"
  RMDir "$INSTDIR"
  RMDir /r "$SMPROGRAMS\Mervasto"
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  DeleteRegKey HKLM "Software\Mervasto"
SectionEnd
