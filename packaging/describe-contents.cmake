# Run by the installation scripts, after the files of a package were installed. Writes two descriptions of its contents:
#
#   NUVEQ_BILL       bill of materials in CycloneDX 1.5 (JSON): every file with its checksum, and the third-party
#                    components with version and licence
#   NUVEQ_COPYRIGHT  copyright file of a Debian package; empty: none
#
# Both are relative to the prefix. NUVEQ_PACKAGE and NUVEQ_VERSION name the package, NUVEQ_THIRD_PARTY is the list of
# components, NUVEQ_SCRATCH a folder for temporary files.
cmake_policy(PUSH)
cmake_policy(VERSION 3.25)

set(nuveq_files)
foreach(file IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
  if(NOT IS_SYMLINK "$ENV{DESTDIR}${file}")
    file(RELATIVE_PATH name "${CMAKE_INSTALL_PREFIX}" "${file}")
    list(APPEND nuveq_files ${name})
  endif()
endforeach()
list(SORT nuveq_files)
list(REMOVE_DUPLICATES nuveq_files)

# A file as a component of the bill.
function(nuveq_file_component variable indent name)
  file(SHA256 "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${name}" checksum)
  set(${variable} "${indent}{\"type\": \"file\", \"name\": \"${name}\", \"hashes\": [{\"alg\": \"SHA-256\", \"content\": \"${checksum}\"}]}" PARENT_SCOPE)
endfunction()

set(nuveq_entries)
set(nuveq_assigned)
set(nuveq_paragraphs "")
# Adds a third-party component if the package contains it.
macro(nuveq_component name version licence files in texts)
  set(parts)
  set(places)
  foreach(file ${files})
    if(file IN_LIST nuveq_files)
      nuveq_file_component(part "        " ${file})
      list(APPEND parts "${part}")
      list(APPEND nuveq_assigned ${file})
      list(APPEND places ${file})
    endif()
  endforeach()
  set(occurrences)
  foreach(file ${in})
    if(file IN_LIST nuveq_files)
      list(APPEND occurrences "{\"location\": \"${file}\"}")
      list(APPEND places ${file})
    endif()
  endforeach()
  if(places)
    string(CONCAT entry "    {\n      \"type\": \"library\",\n      \"name\": \"${name}\",\n      \"version\": \"${version}\",\n"
           "      \"licenses\": [{\"expression\": \"${licence}\"}]")
    if(parts)
      list(JOIN parts ",\n" parts)
      string(APPEND entry ",\n      \"components\": [\n${parts}\n      ]")
    endif()
    if(occurrences)
      list(JOIN occurrences ", " occurrences)
      string(APPEND entry ",\n      \"evidence\": {\"occurrences\": [${occurrences}]}")
    endif()
    list(APPEND nuveq_entries "${entry}\n    }")

    list(JOIN places ", " places)
    string(REPLACE " AND " " and " short "${licence}")
    string(REPLACE " OR " " or " short "${short}")
    string(REPLACE " WITH " " with " short "${short}")
    # Debian has texts of common licences.
    set(reference "")
    if("${licence}" MATCHES "Apache-2.0")
      set(reference " On Debian systems, the Apache License is in /usr/share/common-licenses/Apache-2.0.\n")
    endif()
    set(body "")
    foreach(text ${texts})
      file(READ ${text} content)
      string(STRIP "${content}" content)
      string(REGEX REPLACE "[ \t]+\n" "\n" content "${content}")
      string(REPLACE "\n" "\n " content "${content}")
      string(REGEX REPLACE "\n (\n|$)" "\n .\\1" content "${content}")
      string(REGEX REPLACE "\n (\n|$)" "\n .\\1" content "${content}")
      string(APPEND body " ${content}\n")
    endforeach()
    string(APPEND nuveq_paragraphs
           "\nFiles: ${name}/*\nCopyright: the holders that the text of the licence names\n"
           "Comment: The code of ${name} ${version} is in ${places}.\n${reference}License: ${short}\n${body}")
  endif()
endmacro()
include(${NUVEQ_THIRD_PARTY})

# Writes the content to a file of the package.
function(nuveq_install_text name content)
  get_filename_component(folder ${name} DIRECTORY)
  get_filename_component(file ${name} NAME)
  file(WRITE "${NUVEQ_SCRATCH}/${file}" "${content}")
  file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/${folder}" TYPE FILE FILES "${NUVEQ_SCRATCH}/${file}")
  set(CMAKE_INSTALL_MANIFEST_FILES "${CMAKE_INSTALL_MANIFEST_FILES}" PARENT_SCOPE)
endfunction()

if(NUVEQ_COPYRIGHT)
  string(CONCAT content
      "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
      "Upstream-Name: nuveqcamerahandler\n"
      "\n"
      "Files: *\n"
      "Copyright: 2026 NUVEQ\n"
      "License: none-chosen\n"
      " No licence has been chosen for this project yet.\n"
      "${nuveq_paragraphs}")
  nuveq_install_text(${NUVEQ_COPYRIGHT} "${content}")
  list(APPEND nuveq_files ${NUVEQ_COPYRIGHT})
endif()

foreach(file IN LISTS nuveq_files)
  if(NOT file IN_LIST nuveq_assigned)
    nuveq_file_component(entry "    " ${file})
    list(APPEND nuveq_entries "${entry}")
  endif()
endforeach()
list(JOIN nuveq_entries ",\n" nuveq_entries)
string(CONCAT content
    "{\n"
    "  \"bomFormat\": \"CycloneDX\",\n"
    "  \"specVersion\": \"1.5\",\n"
    "  \"version\": 1,\n"
    "  \"metadata\": {\"component\": {\"type\": \"library\", \"name\": \"${NUVEQ_PACKAGE}\", \"version\": \"${NUVEQ_VERSION}\"}},\n"
    "  \"components\": [\n${nuveq_entries}\n  ]\n"
    "}\n")
nuveq_install_text(${NUVEQ_BILL} "${content}")
cmake_policy(POP)
