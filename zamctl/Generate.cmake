# SPDX-License-Identifier: Apache-2.0
# cmake -DZAMCTL=PROGRAM -DFOLDER=FOLDER -P Generate.cmake: what the program tells about itself, as files to install.
file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}/man1")

function(generate file)
    execute_process(COMMAND "${ZAMCTL}" ${ARGN} OUTPUT_FILE "${FOLDER}/${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The nouns, each with its page.
execute_process(COMMAND "${ZAMCTL}" __complete -- manual "" OUTPUT_VARIABLE nouns COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" nouns "${nouns}")
generate(man1/zamctl.1 manual)
foreach(noun IN LISTS nouns)
    generate(man1/zamctl-${noun}.1 manual ${noun})
endforeach()
generate(zamctl completion bash)
generate(_zamctl completion zsh)
generate(zamctl.fish completion fish)
generate(zamctl.schema.json schema)
