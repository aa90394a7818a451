# Completion of orvo for fish. A test compares the options with those of --help.

complete -c orvo -n __fish_use_subcommand -f -a hdr -d 'merge an exposure bracket into one picture'
complete -c orvo -n __fish_use_subcommand -f -a frames -d 'list the frames of a bracket by exposure'
complete -c orvo -n __fish_use_subcommand -f -a demo -d 'make example pictures and merge them'
complete -c orvo -s h -l help -d 'print help'
complete -c orvo -n __fish_use_subcommand -l version -d 'print the version'

set --local hdr -n '__fish_seen_subcommand_from hdr'
complete -c orvo $hdr -s o -l output -r -d 'the result'
complete -c orvo $hdr -l quality -x -d 'quality of a JPEG, 1 to 100'
complete -c orvo $hdr -l bits -x -a '8 16 32' -d 'bits of a sample'
complete -c orvo $hdr -l align -d 'bring handheld frames into line'
complete -c orvo $hdr -l deghost -x -a '0 1 2 3 4' -d 'take out ghosts of what moved'
complete -c orvo $hdr -l ghost-reference -x -d 'keep what moved as it is in the Nth file'
complete -c orvo $hdr -l chromatic -d 'remove colour fringes'
complete -c orvo $hdr -l lens -d 'correct distortion and dark corners'
complete -c orvo $hdr -l white-balance -x -d 'remove a colour cast, 0 to 1'
complete -c orvo $hdr -l details -x -d 'bring out fine detail, 0 to 1'
complete -c orvo $hdr -l threads -x -d 'use at most so many cores'
complete -c orvo $hdr -l quiet -d 'print nothing but errors'
complete -c orvo $hdr -l json -d 'print the result as JSON'
complete -c orvo $hdr -l log -r -d 'append what is done to a file'

complete -c orvo -n '__fish_seen_subcommand_from frames' -l json -d 'print the list as JSON'

complete -c orvo -n '__fish_seen_subcommand_from demo' -l size -x -d 'longer side of the pictures in pixels'
complete -c orvo -n '__fish_seen_subcommand_from demo' -l keep -d 'keep frames that are there already'
