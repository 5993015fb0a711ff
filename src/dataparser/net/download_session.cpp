#include "dataparser/net/download_session.h"

#include <curl/curl.h>
#include <fmt/core.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <charconv>
#include <condition_variable>
#include <functional>
#include <list>
#include <thread>

#include "dataparser/util/main_queue.h"

namespace dataparser {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() &&
         (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n'))
    text.remove_suffix(1);
  return text;
}

using HeaderList = std::vector<std::pair<std::string, std::string>>;

std::optional<std::string> findHeader(const HeaderList& headers, std::string_view name) {
  for (const auto& [key, value] : headers) {
    if (equalsIgnoringCase(key, name)) return value;
  }
  return std::nullopt;
}

// The body length a response announces: "Content-Length" unless the body is chunked.
std::int64_t announcedBodyLength(const HeaderList& headers) {
  for (const auto& [key, value] : headers) {
    if (!equalsIgnoringCase(key, "Transfer-Encoding")) continue;
    std::string lower = value;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower.find("chunked") != std::string::npos) return -1;
  }
  std::optional<std::string> text = findHeader(headers, "Content-Length");
  if (!text) return -1;
  std::string_view digits = trimmed(*text);
  std::int64_t value = -1;
  auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (ec != std::errc() || end != digits.data() + digits.size() || value < 0) return -1;
  return value;
}

// The process-wide extra CA file.
struct CAConfiguration {
  std::mutex mutex;
  std::string file;
};

CAConfiguration& caConfiguration() {
  static CAConfiguration instance;
  return instance;
}

// Worker threads of running transfers. Finished threads are joined when the next one starts;
// at exit every transfer still running is cancelled and its thread joined. Created after the
// MainQueue's default thread, so destroyed before it: the workers can still post while they
// wind down.
class WorkerThreads {
 public:
  static WorkerThreads& instance() {
    static WorkerThreads threads;
    return threads;
  }

  void start(std::shared_ptr<DownloadTask::Transfer> transfer, std::function<void()> body);
  ~WorkerThreads();

 private:
  WorkerThreads() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    MainQueue::post([] {});  // makes sure the default queue outlives this object
  }

  struct Worker {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> finished;
    std::weak_ptr<DownloadTask::Transfer> transfer;
  };
  std::mutex mutex_;
  std::list<Worker> workers_;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Shared state of a session, held by the session and by each of its tasks.

struct DownloadTask::Shared {
  std::mutex mutex;
  std::weak_ptr<DownloadTaskDelegate> delegate;
  bool invalidated = false;
  std::vector<std::weak_ptr<DownloadTask>> tasks;
};

// The state of one running transfer that the worker thread and the MainQueue share: the
// cancellation flag and the pool of body buffers in flight to the delegate.
struct DownloadTask::Transfer {
  static constexpr std::size_t kSlotSize = std::size_t{1} << 20;
  static constexpr int kSlots = 4;

  DownloadRequest request;
  std::string caFile;
  std::atomic<bool> cancelled = false;

  std::mutex mutex;
  std::condition_variable slotFreed;
  CURLM* multi = nullptr;  // set while the worker polls; guarded by mutex
  std::array<std::unique_ptr<char[]>, kSlots> slots;
  std::vector<int> freeSlots = {3, 2, 1, 0};
  int inFlight = 0;

  void cancel() {
    cancelled = true;
    std::lock_guard lock(mutex);
    slotFreed.notify_all();
    if (multi != nullptr) curl_multi_wakeup(multi);
  }

  void releaseSlot(int slot) {
    {
      std::lock_guard lock(mutex);
      freeSlots.push_back(slot);
      --inFlight;
    }
    slotFreed.notify_all();
  }
};

namespace {

WorkerThreads::~WorkerThreads() {
  std::list<Worker> workers;
  {
    std::lock_guard lock(mutex_);
    workers.swap(workers_);
  }
  for (Worker& worker : workers) {
    if (auto transfer = worker.transfer.lock()) transfer->cancel();
  }
  for (Worker& worker : workers) {
    if (worker.thread.joinable()) worker.thread.join();
  }
}

void WorkerThreads::start(std::shared_ptr<DownloadTask::Transfer> transfer,
                          std::function<void()> body) {
  std::lock_guard lock(mutex_);
  for (auto it = workers_.begin(); it != workers_.end();) {
    if (*it->finished) {
      it->thread.join();
      it = workers_.erase(it);
    } else {
      ++it;
    }
  }
  auto finished = std::make_shared<std::atomic<bool>>(false);
  std::weak_ptr<DownloadTask::Transfer> weakTransfer = transfer;
  transfer.reset();
  workers_.push_back(Worker{std::thread([finished, body = std::move(body)]() mutable {
                              body();
                              body = nullptr;  // releases the transfer's references first
                              *finished = true;
                            }),
                            finished, std::move(weakTransfer)});
}

// Runs one transfer on its worker thread: libcurl callbacks turn into MainQueue events.
class Worker {
 public:
  Worker(std::shared_ptr<DownloadTask> task, std::shared_ptr<DownloadTaskDelegate> delegate,
         std::shared_ptr<DownloadTask::Transfer> transfer)
      : task_(std::move(task)), delegate_(std::move(delegate)), transfer_(std::move(transfer)) {}

  // Performs the transfer and returns its outcome; every event but the completion is posted.
  std::optional<DownloadError> perform();

  void postCompletion(std::optional<DownloadError> error) {
    // Two hops: the completion lands behind whatever the earlier events posted themselves
    // (the downloader's progress steps), so progress never trails the completion.
    MainQueue::post([task = task_, delegate = delegate_, error = std::move(error)] {
      MainQueue::post([task, delegate, error] { delegate->didCompleteWithError(task, error); });
    });
  }

 private:
  static std::size_t onHeader(char* buffer, std::size_t size, std::size_t count, void* user) {
    return static_cast<Worker*>(user)->header(std::string_view(buffer, size * count));
  }
  static std::size_t onBody(char* buffer, std::size_t size, std::size_t count, void* user) {
    return static_cast<Worker*>(user)->body(buffer, size * count);
  }
  static CURLcode onSslContext(CURL*, void* context, void* user) {
    const std::string& file = static_cast<Worker*>(user)->transfer_->caFile;
    X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(context));
    if (store == nullptr || X509_STORE_load_file(store, file.c_str()) != 1) {
      return CURLE_SSL_CACERT_BADFILE;
    }
    return CURLE_OK;
  }

  std::size_t header(std::string_view line);
  std::size_t body(const char* data, std::size_t size);
  void deliverResponse();
  bool acquireSlot();
  void postCurrentSlot();
  bool configure(char* errorBuffer);

  std::shared_ptr<DownloadTask> task_;
  std::shared_ptr<DownloadTaskDelegate> delegate_;
  std::shared_ptr<DownloadTask::Transfer> transfer_;
  CURL* easy_ = nullptr;
  curl_slist* headers_ = nullptr;

  DownloadResponse response_;
  bool headersComplete_ = false;
  bool responseDelivered_ = false;
  int slot_ = -1;  // the body buffer being filled
  std::size_t fill_ = 0;
};

std::size_t Worker::header(std::string_view line) {
  if (responseDelivered_) return line.size();  // trailers of a chunked body
  std::string_view text = trimmed(line);
  if (text.starts_with("HTTP/")) {
    // A new response: an earlier block was a redirect or an interim answer.
    response_ = DownloadResponse{};
    headersComplete_ = false;
    std::size_t space = text.find(' ');
    if (space != std::string_view::npos) {
      std::string_view code = text.substr(space + 1, 3);
      std::from_chars(code.data(), code.data() + code.size(), response_.statusCode);
    }
  } else if (text.empty()) {
    headersComplete_ = true;
    response_.expectedContentLength = announcedBodyLength(response_.headers);
    char* url = nullptr;
    if (curl_easy_getinfo(easy_, CURLINFO_EFFECTIVE_URL, &url) == CURLE_OK && url != nullptr) {
      response_.url = url;
    }
  } else if ((line.front() == ' ' || line.front() == '\t') && !response_.headers.empty()) {
    std::string& value = response_.headers.back().second;  // folded continuation line
    value += ' ';
    value += text;
  } else if (std::size_t colon = text.find(':'); colon != std::string_view::npos) {
    response_.headers.emplace_back(std::string(trimmed(text.substr(0, colon))),
                                   std::string(trimmed(text.substr(colon + 1))));
  }
  return line.size();
}

void Worker::deliverResponse() {
  responseDelivered_ = true;
  MainQueue::post([task = task_, delegate = delegate_, response = response_] {
    delegate->didReceiveResponse(task, response);
  });
}

bool Worker::acquireSlot() {
  DownloadTask::Transfer& t = *transfer_;
  std::unique_lock lock(t.mutex);
  t.slotFreed.wait(lock, [&t] { return t.cancelled || !t.freeSlots.empty(); });
  if (t.cancelled) return false;
  slot_ = t.freeSlots.back();
  t.freeSlots.pop_back();
  ++t.inFlight;  // counted from now on, so the worker never waits for its own buffer
  if (!t.slots[slot_]) {
    t.slots[slot_] = std::make_unique_for_overwrite<char[]>(DownloadTask::Transfer::kSlotSize);
  }
  fill_ = 0;
  return true;
}

void Worker::postCurrentSlot() {
  if (slot_ < 0) return;
  int slot = std::exchange(slot_, -1);
  std::size_t size = std::exchange(fill_, 0);
  MainQueue::post([task = task_, delegate = delegate_, transfer = transfer_, slot, size] {
    delegate->didReceiveData(task, std::span<const char>(transfer->slots[slot].get(), size));
    transfer->releaseSlot(slot);
  });
}

std::size_t Worker::body(const char* data, std::size_t size) {
  DownloadTask::Transfer& t = *transfer_;
  if (t.cancelled) return 0;  // makes libcurl stop the transfer
  if (!responseDelivered_) deliverResponse();
  std::size_t done = 0;
  while (done < size) {
    if (slot_ < 0 && !acquireSlot()) return 0;
    std::size_t piece = std::min(size - done, DownloadTask::Transfer::kSlotSize - fill_);
    std::copy_n(data + done, piece, t.slots[slot_].get() + fill_);
    fill_ += piece;
    done += piece;
    if (fill_ == DownloadTask::Transfer::kSlotSize) postCurrentSlot();
  }
  // Hand the bytes over at once while the MainQueue keeps up; batch them while it is busy.
  if (slot_ >= 0) {
    bool idle = false;
    {
      std::lock_guard lock(t.mutex);
      idle = t.inFlight == 1;  // only the buffer being filled
    }
    if (idle) postCurrentSlot();
  }
  return size;
}

bool Worker::configure(char* errorBuffer) {
  const DownloadRequest& request = transfer_->request;
  for (const auto& [name, value] : request.headers) {
    std::string line = name;
    line += ": ";
    line += value;
    curl_slist* extended = curl_slist_append(headers_, line.c_str());
    if (extended == nullptr) return false;
    headers_ = extended;
  }
  bool ok = curl_easy_setopt(easy_, CURLOPT_URL, request.url.c_str()) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_HTTPGET, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorBuffer) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, 16L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, 512L * 1024L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT, 60L) == CURLE_OK;
  // A transfer that receives nothing for a minute has failed.
  ok = ok && curl_easy_setopt(easy_, CURLOPT_LOW_SPEED_LIMIT, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_LOW_SPEED_TIME, 60L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, 1L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, 2L) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &Worker::onHeader) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &Worker::onBody) == CURLE_OK;
  ok = ok && curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this) == CURLE_OK;
  if (ok && !transfer_->caFile.empty()) {
    ok = curl_easy_setopt(easy_, CURLOPT_SSL_CTX_FUNCTION, &Worker::onSslContext) == CURLE_OK &&
         curl_easy_setopt(easy_, CURLOPT_SSL_CTX_DATA, this) == CURLE_OK;
  }
  return ok;
}

std::optional<DownloadError> Worker::perform() {
  DownloadTask::Transfer& t = *transfer_;
  std::array<char, CURL_ERROR_SIZE> errorBuffer{};
  easy_ = curl_easy_init();
  CURLM* multi = curl_multi_init();
  CURLcode result = CURLE_FAILED_INIT;
  if (easy_ != nullptr && multi != nullptr && configure(errorBuffer.data()) &&
      curl_multi_add_handle(multi, easy_) == CURLM_OK) {
    {
      std::lock_guard lock(t.mutex);
      t.multi = multi;
    }
    int running = 1;
    while (running != 0 && !t.cancelled) {
      if (curl_multi_perform(multi, &running) != CURLM_OK) break;
      if (running != 0 && !t.cancelled) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg == CURLMSG_DONE) result = message->data.result;
    }
    {
      std::lock_guard lock(t.mutex);
      t.multi = nullptr;
    }
    curl_multi_remove_handle(multi, easy_);
  }
  if (multi != nullptr) curl_multi_cleanup(multi);
  if (easy_ != nullptr) curl_easy_cleanup(easy_);
  curl_slist_free_all(headers_);
  easy_ = nullptr;
  headers_ = nullptr;

  if (t.cancelled) return DownloadError::cancelled();
  if (result == CURLE_OK && !responseDelivered_ && headersComplete_) deliverResponse();
  postCurrentSlot();
  if (result == CURLE_OK) return std::nullopt;
  std::string message = errorBuffer[0] != '\0' ? std::string(errorBuffer.data())
                                               : std::string(curl_easy_strerror(result));
  return DownloadError{DownloadError::Kind::kNetwork, static_cast<int>(result), message};
}

}  // namespace

// ---------------------------------------------------------------------------------------------

DownloadError DownloadError::cancelled() {
  return DownloadError{Kind::kCancelled, 0, "cancelled"};
}

std::optional<std::string> DownloadRequest::valueForHTTPHeaderField(std::string_view name) const {
  return findHeader(headers, name);
}

void DownloadRequest::setValueForHTTPHeaderField(std::string value, std::string name) {
  for (auto& [key, existing] : headers) {
    if (equalsIgnoringCase(key, name)) {
      existing = std::move(value);
      return;
    }
  }
  headers.emplace_back(std::move(name), std::move(value));
}

std::optional<std::string> DownloadResponse::valueForHTTPHeaderField(std::string_view name) const {
  return findHeader(headers, name);
}

DownloadTask::DownloadTask(std::shared_ptr<Shared> session, DownloadRequest request)
    : session_(std::move(session)), request_(std::move(request)) {}

DownloadTask::~DownloadTask() = default;

DownloadTask::State DownloadTask::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

void DownloadTask::resume() {
  std::shared_ptr<DownloadTaskDelegate> delegate;
  bool invalidated = false;
  {
    std::lock_guard lock(session_->mutex);
    delegate = session_->delegate.lock();
    invalidated = session_->invalidated;
  }
  std::lock_guard lock(mutex_);
  if (state_ != State::kSuspended) return;
  auto self = shared_from_this();
  if (invalidated || !delegate) {
    state_ = State::kCompleted;
    if (delegate) Worker(self, delegate, nullptr).postCompletion(DownloadError::cancelled());
    return;
  }
  state_ = State::kRunning;
  transfer_ = std::make_shared<Transfer>();
  transfer_->request = request_;
  transfer_->caFile = DownloadSession::additionalCAFile();
  WorkerThreads::instance().start(transfer_, [self, delegate, transfer = transfer_] {
    Worker worker(self, delegate, transfer);
    std::optional<DownloadError> error = worker.perform();
    {
      std::lock_guard stateLock(self->mutex_);
      self->state_ = State::kCompleted;
    }
    worker.postCompletion(std::move(error));
  });
}

void DownloadTask::cancel() {
  std::shared_ptr<DownloadTaskDelegate> delegate;
  {
    std::lock_guard lock(session_->mutex);
    delegate = session_->delegate.lock();
  }
  std::lock_guard lock(mutex_);
  switch (state_) {
    case State::kSuspended:
      state_ = State::kCompleted;
      if (delegate) {
        Worker(shared_from_this(), delegate, nullptr).postCompletion(DownloadError::cancelled());
      }
      break;
    case State::kRunning:
      state_ = State::kCanceling;
      transfer_->cancel();
      break;
    case State::kCanceling:
    case State::kCompleted:
      break;
  }
}

// ---------------------------------------------------------------------------------------------

DownloadSession::DownloadSession(std::shared_ptr<DownloadTask::Shared> shared)
    : shared_(std::move(shared)) {}

DownloadSession::~DownloadSession() = default;

std::shared_ptr<DownloadSession> DownloadSession::sessionWithDelegate(
    std::weak_ptr<DownloadTaskDelegate> delegate) {
  auto shared = std::make_shared<DownloadTask::Shared>();
  shared->delegate = std::move(delegate);
  return std::shared_ptr<DownloadSession>(new DownloadSession(std::move(shared)));
}

std::shared_ptr<DownloadTask> DownloadSession::dataTaskWithRequest(DownloadRequest request) {
  std::shared_ptr<DownloadTask> task(new DownloadTask(shared_, std::move(request)));
  std::lock_guard lock(shared_->mutex);
  auto& tasks = shared_->tasks;
  tasks.erase(std::remove_if(tasks.begin(), tasks.end(), [](const auto& t) { return t.expired(); }),
              tasks.end());
  tasks.push_back(task);
  return task;
}

void DownloadSession::invalidateAndCancel() {
  std::vector<std::weak_ptr<DownloadTask>> tasks;
  {
    std::lock_guard lock(shared_->mutex);
    shared_->invalidated = true;
    tasks.swap(shared_->tasks);
  }
  for (const auto& weak : tasks) {
    if (auto task = weak.lock()) task->cancel();
  }
}

bool DownloadSession::isInvalidated() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->invalidated;
}

void DownloadSession::setAdditionalCAFile(std::string path) {
  std::lock_guard lock(caConfiguration().mutex);
  caConfiguration().file = std::move(path);
}

std::string DownloadSession::additionalCAFile() {
  std::lock_guard lock(caConfiguration().mutex);
  return caConfiguration().file;
}

}  // namespace dataparser
