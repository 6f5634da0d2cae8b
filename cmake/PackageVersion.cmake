# The package version reaches the programs through one generated header, so
# the number lives only in project() of the top CMakeLists.txt.
set(MERVASTO_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
configure_file(${CMAKE_CURRENT_LIST_DIR}/PackageVersion.h.in
  ${MERVASTO_GENERATED_DIR}/common/PackageVersion.h @ONLY)
