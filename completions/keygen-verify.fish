# Completion of keygen-verify for fish.

# Prints how many names of things to check come before the word.
function __keygen_verify_names
    set -l count 0
    set -l previous
    for word in (commandline -opc)[2..]
        if not string match -q -- '-*' $word; and test "$previous" != --passwords
            set count (math $count + 1)
        end
        set previous $word
    end
    echo $count
end

# Succeeds if the word under the cursor is the password file.
function __keygen_verify_is_password_file
    set -l words (commandline -opc)
    test "$words[-1]" = --passwords
end

# Succeeds if the word is a name whose number, counted from 0, is among the arguments.
function __keygen_verify_is_name
    not __keygen_verify_is_password_file
    and not string match -q -- '-*' (commandline -ct)
    and contains -- (__keygen_verify_names) $argv
end

function __keygen_verify_may_be_option
    not __keygen_verify_is_password_file
    and string match -q -- '-*' (commandline -ct)
    and test (__keygen_verify_names) -eq 0
end

# Folders, and files whose name ends in $argv[1].
function __keygen_verify_files
    __fish_complete_path (commandline -ct) | while read -l line
        set -l name (string split -f 1 \t -- $line)
        if string match -q -- '*/' $name; or string match -q -- "*$argv[1]" $name
            printf '%s\n' $name
        end
    end
end

complete -c keygen-verify -f
complete -c keygen-verify -n __keygen_verify_is_password_file -a '(__fish_complete_path (commandline -ct))'
complete -c keygen-verify -n '__keygen_verify_is_name 0 1' -a '(__keygen_verify_files .pem)'
complete -c keygen-verify -n '__keygen_verify_is_name 2' -a '(__keygen_verify_files .bin)'
complete -c keygen-verify -n __keygen_verify_may_be_option -a --passwords -d 'take the passwords from a file'
complete -c keygen-verify -n __keygen_verify_may_be_option -a --public-only -d 'leave the private keys out'
complete -c keygen-verify -n __keygen_verify_may_be_option -a --packet -d 'the names are those of a packet'
complete -c keygen-verify -n __keygen_verify_may_be_option -a --help -d 'show a short help text'
complete -c keygen-verify -n __keygen_verify_may_be_option -a --version -d 'show the version'
