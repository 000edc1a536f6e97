// An SSH server on Go's library: its host key and a client's public key are its arguments. It prints
// "port NUMBER", and runs commands with a shell for any user with that key, or "sesame".
package main

import (
	"bytes"
	"errors"
	"fmt"
	"io"
	"net"
	"os"
	"os/exec"

	"golang.org/x/crypto/ssh"
)

func must[T any](value T, err error) T {
	if err != nil {
		panic(err)
	}
	return value
}

func run(channel ssh.Channel, requests <-chan *ssh.Request) {
	for request := range requests {
		var text struct{ Command string }
		if request.Type != "exec" || ssh.Unmarshal(request.Payload, &text) != nil {
			request.Reply(false, nil)
			continue
		}
		request.Reply(true, nil)
		command := exec.Command("/bin/sh", "-c", text.Command)
		command.Stdout, command.Stderr = channel, channel.Stderr()
		input := must(command.StdinPipe())
		go func() {
			io.Copy(input, channel)
			input.Close()
		}()
		command.Run()
		status := struct{ Code uint32 }{uint32(command.ProcessState.ExitCode())}
		channel.SendRequest("exit-status", false, ssh.Marshal(&status))
		channel.Close()
	}
}

func serve(connection net.Conn, config *ssh.ServerConfig) {
	server, channels, requests, err := ssh.NewServerConn(connection, config)
	if err != nil {
		fmt.Println(err)
		return
	}
	go ssh.DiscardRequests(requests)
	go func() { fmt.Println("lost:", server.Wait()) }()
	for each := range channels {
		channel, requests := must2(each.Accept())
		go run(channel, requests)
	}
}

func must2(channel ssh.Channel, requests <-chan *ssh.Request, err error) (ssh.Channel, <-chan *ssh.Request) {
	return must(channel, err), requests
}

func main() {
	known, _, _, _, err := ssh.ParseAuthorizedKey(must(os.ReadFile(os.Args[2])))
	must(known, err)
	answer := func(isRight bool) (*ssh.Permissions, error) {
		if isRight {
			return nil, nil
		}
		return nil, errors.New("refused")
	}
	config := &ssh.ServerConfig{
		PasswordCallback: func(_ ssh.ConnMetadata, password []byte) (*ssh.Permissions, error) {
			return answer(string(password) == "sesame")
		},
		PublicKeyCallback: func(_ ssh.ConnMetadata, key ssh.PublicKey) (*ssh.Permissions, error) {
			return answer(bytes.Equal(key.Marshal(), known.Marshal()))
		},
	}
	config.AddHostKey(must(ssh.ParsePrivateKey(must(os.ReadFile(os.Args[1])))))
	listener := must(net.Listen("tcp", "127.0.0.1:0"))
	fmt.Println("port", listener.Addr().(*net.TCPAddr).Port)
	for {
		go serve(must(listener.Accept()), config)
	}
}
