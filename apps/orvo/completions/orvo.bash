# Completion of orvo for bash. A test compares the options with those of --help.

_orvo()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W 'hdr stack label upscale fill erase expand restore pano serve frames demo help --help --version' -- "$word")
        return
    fi
    if [[ ${COMP_WORDS[1]} == label && $before == @(-o|--output) ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
    fi
    case $before in
        -o | --output | --log | --model | --mask | --video | --request-only | --response)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --deghost)
            mapfile -t COMPREPLY < <(compgen -W 'none lowest low medium high highest' -- "$word")
            return
            ;;
        --bits)
            mapfile -t COMPREPLY < <(compgen -W '8 16 32' -- "$word")
            return
            ;;
        --denoise)
            mapfile -t COMPREPLY < <(compgen -W '0 1 2 3' -- "$word")
            return
            ;;
        --passes)
            mapfile -t COMPREPLY < <(compgen -W '1 2 3 4' -- "$word")
            return
            ;;
        --format)
            mapfile -t COMPREPLY < <(compgen -W 'jpeg png tiff exr' -- "$word")
            return
            ;;
        --projection)
            mapfile -t COMPREPLY < <(compgen -W 'plane rectilinear cylindrical spherical equirectangular fisheye planet little-planet mercator' -- "$word")
            return
            ;;
        --crop)
            [[ ${COMP_WORDS[1]} == pano ]] || return
            mapfile -t COMPREPLY < <(compgen -W 'none auto' -- "$word")
            return
            ;;
        --batch)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
            ;;
        --memory | --bracket-size | --from | --to | --frame | --shift | --turn | --box | --stroke | --add | --service | --timeout | --retries | --port | --address | --jobs | --max-body)
            return
            ;;
        --quality | --ghost-reference | --reference | --white-balance | --details | --threads | --size | --max-size)
            return
            ;;
    esac
    if [[ $word == -* ]]; then
        local options
        case ${COMP_WORDS[1]} in
            hdr)
                options='--help -o --output --force --quality --bits --align --fast --strict --deghost
                    --ghost-reference --chromatic --lens --white-balance --details --batch --memory --radiance --evs
                    --threads --quiet --json --log'
                ;;
            stack)
                options='--help -o --output --force --quality --bits --no-align --fast --reference --strict
                    --deghost --chromatic --lens --batch --memory --threads --quiet --json --log'
                ;;
            label) options='--help -o --output --format --quality --bits --threads --quiet --json --log' ;;
            upscale)
                options='--help -o --output --force --quality --bits --batch --memory --passes --denoise --crisp --no-faces --model
                    --threads --quiet --json --log'
                ;;
            fill) options='--help -o --output --force --quality --bits --mask --model --threads --quiet --json --log' ;;
            erase)
                options='--help -o --output --force --quality --bits --mask --box --stroke --service --timeout --retries
                    --request-only --response --threads --quiet --json --log'
                ;;
            expand)
                options='--help -o --output --force --quality --bits --add --crop --batch --memory --service --timeout --retries
                    --request-only --response --threads --quiet --json --log'
                ;;
            restore)
                options='--help -o --output --force --quality --bits --as-is --batch --memory --service --timeout --retries
                    --request-only --response --threads --quiet --json --log'
                ;;
            serve) options='--help --port --address --jobs --max-body --timeout --threads --quiet --log' ;;
            pano)
                options='--help -o --output --force --quality --bits --projection --max-size --devignette
                    --chromatic --lens --strict --brackets --bracket-size --video --from --to --frame --shift --turn --straighten --transparent --crop
                    --batch --memory --threads --quiet --json --log'
                ;;
            frames) options='--help --group --json' ;;
            demo) options='--help --size --keep --sheets' ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    elif [[ ${COMP_WORDS[1]} == demo ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -F _orvo orvo
